// A program that loads a manifest and ends.

#include <TarnoMirelo/manifest.h>

int main(int argc, char** argv) {
    TarnoMirelo::ModelMetadata metadata;
    return argc == 2 && metadata.load(TarnoMirelo::Filepath(argv[1])).ok() ? 0 : 1;
}
