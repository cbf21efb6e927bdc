#pragma once

/// @file
/// Texts for people: statuses, element types, shapes and paths, as messages and logs show them.

#include <TarnoMirelo/files.h>
#include <TarnoMirelo/status.h>
#include <TarnoMirelo/tensor.h>

#include <string>

namespace TarnoMirelo::Kit {

/// The name of the code, as in "INVALID_SHAPE"; "status code 5" for a number without a name.
std::string toText(STATUS_CODE code);

/// The name of the element type as a manifest spells it, as in "float"; "undefined" for every other value.
std::string toText(DataType type);

/// The dimensions in parentheses, as in "(1, 64)"; "()" for the shape of a single element.
std::string toText(const TensorShape& shape);

/// The path with the separators of this system. A path that was joined has backslashes on every system until it is
/// used.
std::string toText(const Filepath& path);

/// What a person needs to know of a status, never empty: the code's name and number, the description, or what the code
/// means where there is none, and what to do about it where that is known.
///
///     INVALID_OPERATION (6): The model is not registered. Register the model with a ModelManager first.
std::string describe(const MireloStatus& status);

}  // namespace TarnoMirelo::Kit
