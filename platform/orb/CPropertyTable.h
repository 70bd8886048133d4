#pragma once

#include <string>
#include <vector>

#include "orb/IProperties.h"

namespace Quillon::Orb {

/// The property table that components build on. A component declares in its constructor what it
/// has; an open table, such as that of a media description, takes any name.
class ORB_API CPropertyTable : public IProperties {
public:
    ~CPropertyTable() override;

    Result SetProperty(const PropertyName& name, int value) override;
    Result SetProperty(const PropertyName& name, bool value) override;
    Result SetProperty(const PropertyName& name, CString* value) override;
    Result SetFourProperty(const PropertyName& name, unsigned int value) override;
    Result SetProperties(const IProperties* source) override;
    Result GetProperty(const PropertyName& name, bool& value) const override;
    Result GetProperty(const PropertyName& name, int& value) const override;
    Result GetProperty(const PropertyName& name, RObject<CString>& value) const override;
    Result GetFourProperty(const PropertyName& name, unsigned int& value) const override;
    bool GetSetProperty(int index, PropertyName& name, PropertyValue& value) const override;

protected:
    enum class Openness { Declared, Open };
    explicit CPropertyTable(Openness openness = Openness::Declared);

    /// `initial` is what the getters give until somebody sets the property. Declaring a name again
    /// replaces what was declared. An int outside `lowest` to `highest` is refused.
    void DeclareInt(const PropertyName& name, int initial, int lowest, int highest);
    void DeclareBool(const PropertyName& name, bool initial);
    void DeclareFour(const PropertyName& name, unsigned int initial);
    void DeclareString(const PropertyName& name, const char* initial);
    /// A flag that only the component itself changes, by UpdateFlag.
    void DeclareReadOnlyFlag(const PropertyName& name, bool initial);
    void UpdateFlag(const PropertyName& name, bool value);

    // What stands in the table; a name that was not declared gives 0, false or null.
    int GetInt(const PropertyName& name) const;
    bool GetFlag(const PropertyName& name) const;
    unsigned int GetFour(const PropertyName& name) const;
    /// Valid until the property is set again.
    const char* GetText(const PropertyName& name) const;
    /// True when somebody set it, also to its initial value.
    bool WasSet(const PropertyName& name) const;

    /// The component's say on a value of the right kind and range before it is stored. A failure
    /// refuses it; its message goes into the trace line.
    virtual Result AcceptProperty(const PropertyName& name, const PropertyValue& value);
    /// What the trace line calls this component.
    virtual std::string GetOwnerName() const = 0;

private:
    struct Entry;

    const Entry* find(const PropertyName& name) const;
    Entry* find(const PropertyName& name);
    Entry& declare(const PropertyName& name, PropertyValue initial);
    Result set(const PropertyName& name, PropertyValue value);
    Result check(const Entry* entry, const PropertyName& name, const PropertyValue& value);
    Result get(const PropertyName& name, PropertyValue::Kind kind, const Entry*& entry) const;

    const Openness fOpenness;
    std::vector<Entry> fEntries;
};

}  // namespace Quillon::Orb
