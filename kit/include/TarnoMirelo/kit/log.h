#pragma once

/// @file
/// Where a backend's own lines go.

#include <TarnoMirelo/logging.h>

#include <memory>
#include <string>

namespace TarnoMirelo::Kit {

/// Sends a line to the host's sink. Without one, errors alone are reported, through `_Report_`: hosts that asked for no
/// log get nothing else on their standard output. Raises nothing: a failing sink must not fail the caller.
///
/// Nothing is locked: calls with one sink, and those without any, must not overlap.
/// @param sink  of the host's configuration; may be null
/// @param text  names the backend and the model
void writeLog(const std::shared_ptr<ILogProcessor>& sink, LogSeverity severity, const std::string& text) noexcept;

}  // namespace TarnoMirelo::Kit
