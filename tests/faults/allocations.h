#pragma once

#include <cstddef>

/// The allocations of this program, counted and failed at will: operator new in all its forms, and the library's
/// calloc. For one thread.
namespace TarnoMirelo::Allocations {

/// Lets the allocation with that number fail, counted from 1, and where `onwards`, every one that follows.
void failAt(size_t number, bool onwards);
/// No further one fails.
/// @return how many have failed since `failAt`
size_t stopFailing();
/// Those that were not released yet.
size_t alive();

}  // namespace TarnoMirelo::Allocations
