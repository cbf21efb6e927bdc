#pragma once

#include <TarnoMirelo/manifest.h>
#include <TarnoMirelo/status.h>

#include <memory>
#include <string>

namespace TarnoMirelo {

/// "5.4.0", a copy of the library's version text.
std::string getLibraryVersion();

class UsageReporting {
 public:
    /// Adds the six usage properties to a status, each where its key is absent. They are written out when somebody
    /// reads them; until then nothing is allocated, and the status shares the model's name.
    /// @param method  constant text
    static void addUsageProperties(MireloStatus& status, const char* method, MireloModelType modelType,
                                   const std::shared_ptr<const std::string>& modelName);

 private:
    static void write(const MireloStatus::UsageStamp& stamp, MireloStatus::PropertyMap& properties);
};

}  // namespace TarnoMirelo
