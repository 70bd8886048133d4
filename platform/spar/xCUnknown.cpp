#include "spar/xCUnknown.h"

#include <cstring>

namespace {
constexpr int kNullArgument = -22;
constexpr int kNoInterface = -31;
}  // namespace

xCUnknown::~xCUnknown() = default;

int xCUnknown::QueryInterface(const char* name, void** out) {
    return Concrete_QueryInterface(name, out);
}

int xCUnknown::AddRef() {
    return Concrete_AddRef();
}

int xCUnknown::Release() {
    return Concrete_Release();
}

int xCUnknown::GetInterface(xIUnknown* interface, void** out) {
    if (out == nullptr) return kNullArgument;
    *out = interface;
    if (interface == nullptr) return kNoInterface;
    interface->AddRef();
    return 0;
}

int xCUnknown::Concrete_QueryInterface(const char* name, void** out) {
    if (name == nullptr || out == nullptr) return kNullArgument;
    if (std::strcmp(name, "xIUnknown") == 0) return GetInterface(this, out);
    *out = nullptr;
    return kNoInterface;
}

void xCUnknown::DeleteObject() {
    delete this;
}

int xCUnknown::Concrete_AddRef() {
    return fRefCount.fetch_add(1, std::memory_order_relaxed) + 1;
}

int xCUnknown::Concrete_Release() {
    const int left = fRefCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (left == 0) DeleteObject();
    return left;
}
