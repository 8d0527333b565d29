// Device simulator (placeholder).
int main() { return 1; }
