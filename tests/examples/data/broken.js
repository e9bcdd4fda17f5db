var a = 1;
a = f(1 2);
