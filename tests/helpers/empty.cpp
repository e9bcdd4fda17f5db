// Keeps the support library non-empty before any helper lands.
