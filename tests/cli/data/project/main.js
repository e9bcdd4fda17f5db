var level = 1;
function next_level() { level = level + 1; return level; }
