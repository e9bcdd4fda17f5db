var gates = 3;
while (gates > 0) { gates--; }
