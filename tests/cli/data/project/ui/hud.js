var hud_visible = true;
function draw_hud(score) { if (hud_visible) { show_message("score " + score); } }
