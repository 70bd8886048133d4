#pragma once

#include <memory>

/// A shared pointer that holds one reference of its own to a counted object.
///
/// The reference is added here and given back by Release when the last copy goes; the caller's own
/// reference stays the caller's. Null gives an empty pointer.
template <class T>
std::shared_ptr<T> zAsSharedPtr(T* object) {
    if (object == nullptr) return nullptr;
    object->AddRef();
    return std::shared_ptr<T>(object, [](T* counted) { counted->Release(); });
}
