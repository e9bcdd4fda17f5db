var menu = { items: ["play", "quit"], selected: 0 };
function menu_down() { menu.selected = (menu.selected + 1) % menu.items.length; }
