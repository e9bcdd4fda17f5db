try { a(); } catch (e) { b(e); } finally { c(); }
do { x--; } while (x > 0);
)