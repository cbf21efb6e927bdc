#pragma once

namespace TarnoMirelo {

/// Lets one call of operator new fail in this thread, of whatever library of the program, once `count` have worked.
void failNewAfter(int count);
/// None fails from now on.
/// @return whether one has
bool stopFailingNew();

}  // namespace TarnoMirelo
