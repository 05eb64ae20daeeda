// Placeholder until the sample generator lands.
int main() { return 0; }
