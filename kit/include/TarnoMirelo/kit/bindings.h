#pragma once

/// @file
/// What `bind` hands to a host and `evaluate` gets back: how a backend tells its own bindings from those of others.
///
/// A binding is told by how it is deleted, and not by a cast: a cast needs type information, which the binding of a
/// host built without it doesn't have.

#include <TarnoMirelo/model.h>

#include <memory>
#include <utility>

namespace TarnoMirelo::Kit {

/// Deletes a binding of one backend.
/// @tparam Binding  the backend's own class, derived from `MireloModel::MireloBinding`
template <typename Binding>
struct DeleteBinding {
    /// What the last owner's release calls: deletes the binding as the class that it is.
    void operator()(MireloModel::MireloBinding* /*bound*/) const { delete made; }

    Binding* made;  ///< the binding as `handOut` got it
};

/// The binding in the form that `bind` hands out. Raises `std::bad_alloc` where memory runs out; the binding is gone
/// then.
template <typename Binding>
std::shared_ptr<MireloModel::MireloBinding> handOut(std::unique_ptr<Binding> binding) {
    Binding* const made = binding.release();
    return {made, DeleteBinding<Binding>{made}};
}

/// The backend's own binding, borrowed; null where `handOut<Binding>` did not make it.
template <typename Binding>
Binding* ownBinding(const std::shared_ptr<MireloModel::MireloBinding>& binding) {
    const auto* const own = std::get_deleter<DeleteBinding<Binding>>(binding);
    // One that shares ownership with ours, but points elsewhere, is not ours.
    return own != nullptr && own->made == binding.get() ? own->made : nullptr;
}

}  // namespace TarnoMirelo::Kit
