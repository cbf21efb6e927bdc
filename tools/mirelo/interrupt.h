#pragma once

namespace TarnoMirelo::Tool {

/// The user has pressed Ctrl-C, or the system wants the tool to end. Raised where a command can stop, so that what it
/// has begun is removed on the way out.
struct Interrupted {};

/// From now on Ctrl-C and the system's wish to end are kept for `checkInterrupt`. The second one ends the tool at once.
void catchInterrupts();

/// Raises `Interrupted` if there was one. Commands call it between the steps of long work.
void checkInterrupt();

}  // namespace TarnoMirelo::Tool
