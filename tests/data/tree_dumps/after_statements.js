var x = 1;
function f(a, b) { return a * b; }
if (x) { y = [1, , 'two', {k: 3}]; }
x = ;