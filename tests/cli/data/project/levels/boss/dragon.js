function dragon_attack(target) {
    switch (target) {
        case "player": return 10;
        default: return 0;
    }
}
