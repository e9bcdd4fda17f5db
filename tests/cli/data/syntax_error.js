var ready = true;
function start(level) {
	if (level > 1 {
		return;
	}
}
