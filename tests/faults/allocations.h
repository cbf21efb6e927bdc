#pragma once

#include <cstddef>

/// Counts the allocations of this program and lets chosen ones fail: operator new in all its forms, and malloc, calloc
/// and realloc of the library. For one thread.
namespace TarnoMirelo::Allocations {

/// Lets the allocation with that number fail, counted from 1; with `onwards`, every later one, too.
void failAt(size_t number, bool onwards);
/// No further one fails.
/// @return how many have failed since `failAt`
size_t stopFailing();
/// How many were not released yet.
size_t alive();

}  // namespace TarnoMirelo::Allocations
