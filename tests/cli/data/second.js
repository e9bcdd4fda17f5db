// Uses a name the first script added and adds two of its own.
var score = greeting.length;
function bonus(points) { return points * 2; }
score = bonus(score);
