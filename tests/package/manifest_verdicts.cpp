// Reads manifests, one a line, and says for each whether something is found in it: "sound" or "faulty".

#include <TarnoMirelo/kit/check.h>

#include <iostream>
#include <string>

int main() {
    for (std::string line; std::getline(std::cin, line);) {
        std::cout << (TarnoMirelo::Kit::checkManifestText(line).empty() ? "sound" : "faulty") << '\n';
    }
}
