// The parser prints its tree before this error.
var count = 3;
var next = count + ;
