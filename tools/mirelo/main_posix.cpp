#include "tool.h"

int main(int argc, char** argv) {
    return TarnoMirelo::Tool::runTool(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
}
