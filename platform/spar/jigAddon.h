#pragma once

#include "spar/xIUnknown.h"

/// How the host and an add-on shake hands. Grows when the layout of an interface or of this
/// handshake changes; an add-on with another number is not loaded.
constexpr unsigned int kJigABI = 1;

/// What an add-on says of itself. The first two fields keep their place for ever: they are read
/// before anything else is believed.
struct jigAddon {
    unsigned int fMark;  ///< kJigMark
    unsigned int fABI;   ///< kJigABI of the headers that it was built with
    const char* fInterface;
    /// Makes the add-on's object, with one reference for the caller. It answers QueryInterface for
    /// fInterface. May give null or throw when the add-on cannot work here.
    xIUnknown* (*fCreate)();
};

constexpr unsigned int kJigMark = 'jig1';

/// The name of the one function that a loadable add-on exports.
#define JIG_ENTRY_NAME "jigAddonEntry"

/// Makes a shared object an add-on: once, outside all namespaces, in one source.
///
///     JIG_ADDON(tnXIMovieFile, MyMovieFile)
///
/// `Interface` is the interface, whose name is what hosts look for; `Class` is
/// default-constructible and derives from it.
#define JIG_ADDON(Interface, Class)                                                    \
    extern "C" __attribute__((visibility("default"))) const jigAddon* jigAddonEntry(); \
    const jigAddon* jigAddonEntry() {                                                  \
        static const jigAddon addon = JIG_LINKED_ADDON(Interface, Class);              \
        return &addon;                                                                 \
    }

/// The same for an add-on that is linked in, to hand to jigManager::Add.
#define JIG_LINKED_ADDON(Interface, Class)                                    \
    {                                                                         \
        kJigMark, kJigABI, #Interface,                                        \
            []() -> xIUnknown* { return static_cast<Interface*>(new Class); } \
    }
