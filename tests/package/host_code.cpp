// What a host may write in C++17 and C++20: it compiles without a warning.

#include <TarnoMirelo/TarnoMirelo.h>

using namespace TarnoMirelo;

bool compareShapes(TensorShape& a, const TensorShape& b) {
    return a == b || b == a || a == a || b == b || a == TensorShape(1, 2) || TensorShape{} == b || a != b || b != a ||
           a != TensorShape{1} || TensorShape({1, 2}) != TensorShape(std::vector<int64_t>{3}) || a.compare(b);
}

STATUS_CODE bothSpellings(STATUS_CODE code) { return code == SUCCESS ? STATUS_CODE::FILE_ERROR : UNKNOWN_ERROR; }

ModelComponent componentOfKind() {
    ModelComponent component;
    component.type = ComponentKind::MemoryStream;
    return component.type == ComponentKind::File ? ModelComponent() : component;
}

Device deviceOf(MireloModelType type) { return {"cpu", type}; }

// Hooks and internals are not for hosts: these must not compile.
template <typename Model, typename = void>
constexpr bool kHostMayCallHooks = false;
template <typename Model>
constexpr bool kHostMayCallHooks<Model, decltype(void(std::declval<Model>().onUnload()))> = true;
static_assert(!kHostMayCallHooks<MireloModel>, "hooks are reached through the public operations");
static_assert(!std::is_copy_constructible_v<Tensor>, "tensors have identity");
static_assert(!std::is_copy_constructible_v<MireloFeatureBool>, "features have identity");
static_assert(!std::is_convertible_v<int64_t, TensorShape>, "a number is no shape");
