var trees = [];
for (var t = 0; t < 5; t++) { trees[t] = t * 10; }
