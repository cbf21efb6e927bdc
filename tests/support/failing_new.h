#pragma once

namespace TarnoMirelo {

/// Lets one call of operator new fail in this thread once `count` have worked. Those of other libraries don't count:
/// the engine loses memory of its own where one of them fails.
void failNewAfter(int count);
/// None fails from now on.
/// @return whether one has
bool stopFailingNew();

}  // namespace TarnoMirelo
