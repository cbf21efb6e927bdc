#pragma once

#include <TarnoMirelo/model.h>

#include <memory>

namespace TarnoMirelo {

/// The binding of a backend that was built without type information.
std::shared_ptr<MireloModel::MireloBinding> bareBinding();

}  // namespace TarnoMirelo
