var lava = ;
