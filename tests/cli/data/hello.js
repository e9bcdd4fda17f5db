// Greets the player and counts to three.
var greeting = "hello";
function greet(name) {
    return greeting + ", " + name;
}
for (var i = 0; i < 3; i++) {
    show_message(greet("player " + i));
}
