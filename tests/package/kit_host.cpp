// A host that uses the installed kit.

#include <TarnoMirelo/kit/texts.h>

#include <iostream>

int main() {
    std::cout << TarnoMirelo::Kit::describe({TarnoMirelo::SUCCESS, ""}) << std::endl;
    return 0;
}
