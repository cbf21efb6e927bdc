#include "support/bare_classes.h"

namespace TarnoMirelo {
namespace {

struct BareBinding : MireloModel::MireloBinding {};

}  // namespace

std::shared_ptr<MireloModel::MireloBinding> bareBinding() { return std::make_shared<BareBinding>(); }

}  // namespace TarnoMirelo
