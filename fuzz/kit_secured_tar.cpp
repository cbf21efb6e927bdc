// Bytes as the archive of a "secured_tar": it is taken or refused as another reader of the archive says, and each file
// is what that one finds.

#include "support/protection.h"
#include "support/require.h"
#include "support/tar_model.h"
#include "support/temp_dir.h"

#include <TarnoMirelo/kit/components.h>

#include <utf8.h>

#include <algorithm>
#include <cstring>
#include <map>

namespace TarnoMirelo {
namespace {

std::string plainName(std::string name) {
    std::replace(name.begin(), name.end(), '\\', '/');
    std::string plain;
    for (size_t begin = 0; begin < name.size();) {
        const size_t end = std::min(name.find('/', begin), name.size());
        const std::string part = name.substr(begin, end - begin);
        if (!part.empty() && part != ".") plain += (plain.empty() ? "" : "/") + part;
        begin = end + 1;
    }
    return plain;
}

}  // namespace
}  // namespace TarnoMirelo

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace TarnoMirelo;
    static const TempDir scratch;
    Bytes container;
    require(Kit::protect(data, size, kTestKey, container).ok(), "every content can be protected");
    scratch.write("tar", stringOf(container));
    ModelComponent component;
    component.name = "net";
    component.type = ComponentKind::SecuredTar;
    component.path = "tar";
    component.setCryptoKey(kTestKey);
    Kit::ComponentFiles files;
    const MireloStatus status = Kit::readComponentFiles(component, scratch.path(), files);

    const TarReading reading = readTar(data, size, true);
    std::map<std::string, TarEntry> expected;
    bool twice = false;
    for (const TarEntry& entry : reading.entries) {
        if (!entry.directory) twice = !expected.emplace(plainName(entry.name), entry).second || twice;
    }
    require(status.ok() == (reading.end == SUCCESS && !twice), "a good archive is taken and a bad one refused");
    require(status.ok() || status.getCode() == MODEL_METADATA_ERROR, "the status is a documented one");
    require(utf8::is_valid(std::string(status.getDescription())), "a reason is text");
    require(files.files().size() == (status.ok() ? expected.size() : 0), "all files are there, or none");
    for (const Kit::ComponentFiles::File& file : files.files()) {
        const auto found = expected.find(file.name);
        require(found != expected.end() && found->second.size == file.size &&
                    (file.size == 0 || std::memcmp(found->second.data, file.data, file.size) == 0),
                "each file is what the archive has");
        require(files.find(file.name) == &file, "each file is found by its name");
    }
    return 0;
}
