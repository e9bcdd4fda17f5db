var lone = "half \uD800 pair";
var wide = "big ÷¿¿¿ end";
var ok = "cafÃ©";
