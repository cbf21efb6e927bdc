// A program that does nothing, but has the C++ runtime loaded, as every program in C++ that does something.

#include <exception>

int main() { return std::uncaught_exceptions(); }
