// Placeholder until the start-up sequence lands.
int tovrinMain(int, char**) { return 0; }
