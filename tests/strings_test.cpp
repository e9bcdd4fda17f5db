#include <gtest/gtest.h>

#include "api/strings.h"

TEST(StringBuilder, AppendingEmptyTextToEmptyBuilderAllocatesOneByte) {
    StringBuilder builder{};
    AppendText(builder, "");
    EXPECT_EQ(builder.capacity, 1);
    EXPECT_EQ(builder.length, 0u);
    EXPECT_STREQ(builder.text, "");
    FreeStringBuilder(builder);
}
