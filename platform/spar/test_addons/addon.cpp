// One source for all the add-ons of the tests, good and bad: KIND_... says which one this build is.
#include <cstring>
#include <stdexcept>

#include "spar/jigAddon.h"
#include "spar/test_addons/TestFormat.h"

namespace {

class Format : public TestFormat {
public:
    int Concrete_QueryInterface(const char* name, void** out) override {
        if (name != nullptr && std::strcmp(name, "TestFormat") == 0) return GetInterface(this, out);
        return xCUnknown::Concrete_QueryInterface(name, out);
    }
    const char* FormatName() override { return ADDON_NAME; }
};

/// Does not answer the interface that its add-on names.
class Liar final : public Format {
public:
    int Concrete_QueryInterface(const char* name, void** out) override {
        return xCUnknown::Concrete_QueryInterface(name, out);
    }
};

[[maybe_unused]] xIUnknown* make_nothing() {
    return nullptr;
}
[[maybe_unused]] xIUnknown* make_trouble() {
    throw std::runtime_error("no device");
}

}  // namespace

#if defined(KIND_GOOD)
JIG_ADDON(TestFormat, Format)
#elif defined(KIND_LIAR)
JIG_ADDON(TestFormat, Liar)
#elif defined(KIND_ALIEN)
extern "C" __attribute__((visibility("default"))) int alien_work() {
    return 1;
}
#else

extern "C" __attribute__((visibility("default"))) const jigAddon* jigAddonEntry();
extern "C" int nobody_has_this_function();

const jigAddon* jigAddonEntry() {
#if defined(KIND_BAD_ENTRY)
    throw std::runtime_error("no device");
#elif defined(KIND_BAD_ENTRY_NUMBER)
    throw 5;
#elif defined(KIND_OTHER_ABI)
    // What follows the number has another layout there, and must not be followed.
    static const unsigned long addon[4] = {kJigMark | (kJigABI + 1UL) << 32, 1, 1, 1};
    return reinterpret_cast<const jigAddon*>(addon);
#elif defined(KIND_OTHER_MARK)
    static const unsigned long addon[4] = {12345, 1, 1, 1};
    return reinterpret_cast<const jigAddon*>(addon);
#elif defined(KIND_NULL)
    return nullptr;
#elif defined(KIND_UNRESOLVED)
    return nobody_has_this_function() != 0 ? nullptr : nullptr;
#elif defined(KIND_NAMELESS)
    static const jigAddon addon = {kJigMark, kJigABI, "", make_nothing};
    return &addon;
#elif defined(KIND_UNWILLING)
    static const jigAddon addon = {kJigMark, kJigABI, "TestFormat", make_nothing};
    return &addon;
#elif defined(KIND_THROWING)
    static const jigAddon addon = {kJigMark, kJigABI, "TestFormat", make_trouble};
    return &addon;
#endif
}

#endif
