var intro_text = "Welcome";
show_message(intro_text);
