#pragma once

#include "orb/CString.h"
#include "orb/PropertyName.h"
#include "orb/RObject.h"
#include "orb/Result.h"

namespace Quillon::Orb {

/// One value of a property table. `kind` says which member holds it.
struct PropertyValue {
    enum class Kind { Int, Bool, Four, String };

    Kind kind = Kind::Int;
    int integer = 0;
    bool flag = false;
    unsigned int four = 0;
    RObject<CString> text;

    static PropertyValue Of(int value) { return {.kind = Kind::Int, .integer = value, .text = {}}; }
    static PropertyValue Of(bool value) { return {.kind = Kind::Bool, .flag = value, .text = {}}; }
    static PropertyValue OfFour(unsigned int value) {
        return {.kind = Kind::Four, .four = value, .text = {}};
    }
    /// Shares the text.
    static PropertyValue Of(CString* value) {
        return {.kind = Kind::String, .text = RObject<CString>::Share(value)};
    }
};

/// A table of properties by name: the second base of every filter and container writer.
///
/// A failing setter changes nothing, and the component writes one trace line that names itself,
/// the property and the value. Called under the lock of whoever owns the component.
class ORB_API IProperties {
public:
    virtual ~IProperties();

    /// ResultNotSupported for a property that the component does not have, of another kind or read
    /// only; ResultInvalidArgument (or the component's own code) for a value it cannot take.
    virtual Result SetProperty(const PropertyName& name, int value) = 0;
    virtual Result SetProperty(const PropertyName& name, bool value) = 0;
    virtual Result SetProperty(const PropertyName& name, CString* value) = 0;
    virtual Result SetFourProperty(const PropertyName& name, unsigned int value) = 0;
    /// Takes over every value that was set in the other table and that this one has, too. Null
    /// changes nothing. Gives the first failure and still sets the rest.
    virtual Result SetProperties(const IProperties* source) = 0;

    /// ResultNotSupported, with `value` unchanged, for a property of no such name and kind.
    virtual Result GetProperty(const PropertyName& name, bool& value) const = 0;
    virtual Result GetProperty(const PropertyName& name, int& value) const = 0;
    virtual Result GetProperty(const PropertyName& name, RObject<CString>& value) const = 0;
    virtual Result GetFourProperty(const PropertyName& name, unsigned int& value) const = 0;

    /// The values that were set, for copying: the `index`th, or false behind the last.
    virtual bool GetSetProperty(int index, PropertyName& name, PropertyValue& value) const = 0;
};

}  // namespace Quillon::Orb
