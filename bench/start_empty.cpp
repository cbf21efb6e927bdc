// A program that does nothing: what a start costs at least.

int main() { return 0; }
