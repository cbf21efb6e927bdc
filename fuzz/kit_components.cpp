// Bytes as the path of a component: what is read lies below the model's directory, by the path alone.

#include "support/require.h"
#include "support/temp_dir.h"

#include <TarnoMirelo/kit/components.h>

#include <string>
#include <vector>

namespace TarnoMirelo {
namespace {

// How deep below its start the path ends and was at the least; nothing where it does not begin there.
struct Walk {
    bool relative = true;
    int least = 0;
};

Walk walk(const std::string& path) {
    Walk walked;
    walked.relative = path.empty() || (path[0] != '/' && path[0] != '\\');
    int depth = 0;
    std::string name;
    for (const char character : path + "/") {
        if (character != '/' && character != '\\') {
            name += character;
            continue;
        }
        if (name == "..") --depth;
        if (!name.empty() && name != "." && name != "..") ++depth;
        walked.least = std::min(walked.least, depth);
        name.clear();
    }
    return walked;
}

}  // namespace
}  // namespace TarnoMirelo

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace TarnoMirelo;
    static const TempDir scratch;
    static const Filepath root = [] {
        scratch.write("secret", "outside");
        std::filesystem::create_directories(scratch.native() / "model" / "sub");
        scratch.write("model/net", "inside");
        scratch.write("model/sub/net", "inside");
        return scratch.path("model");
    }();
    ModelComponent component;
    component.name = "net";
    component.type = ComponentKind::File;
    component.path.assign(reinterpret_cast<const char*>(data), size);
    const Walk walked = walk(component.path);
    const bool inside = Kit::staysInside(component.path);
    if (inside) require(walked.relative && walked.least == 0, "a path that stays inside never leaves");

    Kit::ComponentBytes bytes;
    const MireloStatus status = Kit::readComponent(component, root, bytes);
    require(status.ok() || status.getCode() == FILE_ERROR || status.getCode() == MODEL_METADATA_ERROR,
            "the status is a documented one");
    require(status.ok() || status.getDescription().compare(0, 17, "Component \"net\": ") == 0,
            "it names the component");
    require(inside || status.getCode() == MODEL_METADATA_ERROR, "a path that leaves is refused");
    const std::string read(reinterpret_cast<const char*>(bytes.data()), static_cast<size_t>(bytes.size()));
    require(status.ok() ? read == "inside" : read.empty(), "what is read lies inside");
    Filepath path;
    const STATUS_CODE located = Kit::locateComponent(component, root, path).getCode();
    require(!status.ok() || located == SUCCESS, "what can be read can be located");
    component.type.assign(reinterpret_cast<const char*>(data), size);
    if (component.type == ComponentKind::File || component.type == ComponentKind::MemoryStream) return 0;
    require(Kit::readComponent(component, root, bytes).getCode() == MODEL_METADATA_ERROR, "other kinds are refused");
    return 0;
}
