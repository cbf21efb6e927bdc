// Unpacks a tar archive: extract <archive> <directory>. Prints the path of the archive's first directory.

#include <TarnoMirelo/files.h>

#include <iostream>

using namespace TarnoMirelo;

int main(int count, char** arguments) {
    if (count != 3) {
        std::cerr << "extract: wanted are an archive and a directory" << std::endl;
        return 2;
    }
    FileUtils files;
    const std::vector<unsigned char> archive = files.readBinaryFileToByteVector(Filepath(arguments[1]));
    Filepath destination(arguments[2]);
    const MireloStatus status = files.extractTarballOfSize(archive.data(), archive.size(), destination);
    if (!status.ok()) {
        std::cerr << status.getCode() << ": " << status.getDescription() << std::endl;
        return 1;
    }
    std::cout << destination.getPathString() << std::endl;
    return 0;
}
