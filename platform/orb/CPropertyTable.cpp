#include "orb/CPropertyTable.h"

#include <utility>

#include "orb/fourText.h"
#include "spar/trace.h"

namespace Quillon::Orb {

struct CPropertyTable::Entry {
    PropertyName name;
    PropertyValue value;
    int lowest = 0;
    int highest = 0;
    bool readOnly = false;
    bool wasSet = false;
};

namespace {

std::string text_of(const PropertyValue& value) {
    switch (value.kind) {
        case PropertyValue::Kind::Int:
            return std::to_string(value.integer);
        case PropertyValue::Kind::Bool:
            return value.flag ? "true" : "false";
        case PropertyValue::Kind::Four:
            return value.four == 0 ? "0" : four_text(value.four);
        case PropertyValue::Kind::String:
            break;
    }
    return value.text ? std::string("\"") + value.text->GetText() + "\"" : "null";
}

const char* name_of(PropertyValue::Kind kind) {
    switch (kind) {
        case PropertyValue::Kind::Int:
            return "a number";
        case PropertyValue::Kind::Bool:
            return "a flag";
        case PropertyValue::Kind::Four:
            return "a four-character code";
        case PropertyValue::Kind::String:
            break;
    }
    return "a text";
}

}  // namespace

IProperties::~IProperties() = default;

CPropertyTable::CPropertyTable(Openness openness) : fOpenness(openness) {}
CPropertyTable::~CPropertyTable() = default;

const CPropertyTable::Entry* CPropertyTable::find(const PropertyName& name) const {
    for (const Entry& entry : fEntries) {
        if (entry.name == name) return &entry;
    }
    return nullptr;
}

CPropertyTable::Entry* CPropertyTable::find(const PropertyName& name) {
    return const_cast<Entry*>(std::as_const(*this).find(name));
}

CPropertyTable::Entry& CPropertyTable::declare(const PropertyName& name, PropertyValue initial) {
    Entry* entry = find(name);
    if (!entry) entry = &fEntries.emplace_back(Entry{name, {}});
    *entry = Entry{name, std::move(initial)};
    return *entry;
}

void CPropertyTable::DeclareInt(const PropertyName& name, int initial, int lowest, int highest) {
    Entry& entry = declare(name, PropertyValue::Of(initial));
    entry.lowest = lowest;
    entry.highest = highest;
}

void CPropertyTable::DeclareBool(const PropertyName& name, bool initial) {
    declare(name, PropertyValue::Of(initial));
}

void CPropertyTable::DeclareFour(const PropertyName& name, unsigned int initial) {
    declare(name, PropertyValue::OfFour(initial));
}

void CPropertyTable::DeclareString(const PropertyName& name, const char* initial) {
    RObject<CString> text(new CString(initial));
    declare(name, PropertyValue::Of(text.Get()));
}

void CPropertyTable::DeclareReadOnlyFlag(const PropertyName& name, bool initial) {
    declare(name, PropertyValue::Of(initial)).readOnly = true;
}

void CPropertyTable::UpdateFlag(const PropertyName& name, bool value) {
    if (Entry* entry = find(name)) entry->value.flag = value;
}

int CPropertyTable::GetInt(const PropertyName& name) const {
    const Entry* entry = find(name);
    return entry ? entry->value.integer : 0;
}

bool CPropertyTable::GetFlag(const PropertyName& name) const {
    const Entry* entry = find(name);
    return entry && entry->value.flag;
}

unsigned int CPropertyTable::GetFour(const PropertyName& name) const {
    const Entry* entry = find(name);
    return entry ? entry->value.four : 0;
}

const char* CPropertyTable::GetText(const PropertyName& name) const {
    const Entry* entry = find(name);
    return entry && entry->value.text ? entry->value.text->GetText() : nullptr;
}

bool CPropertyTable::WasSet(const PropertyName& name) const {
    const Entry* entry = find(name);
    return entry && entry->wasSet;
}

Result CPropertyTable::AcceptProperty(const PropertyName&, const PropertyValue&) {
    return 0;
}

Result CPropertyTable::check(const Entry* entry, const PropertyName& name,
                             const PropertyValue& value) {
    if (!entry) return ResultNotSupported("no such property");
    if (entry->readOnly) return ResultNotSupported("it can only be read");
    if (entry->value.kind != value.kind) {
        return ResultNotSupported("it is %s", name_of(entry->value.kind));
    }
    if (value.kind == PropertyValue::Kind::Int &&
        (value.integer < entry->lowest || value.integer > entry->highest)) {
        return ResultInvalidArgument("it goes from %d to %d", entry->lowest, entry->highest);
    }
    if (value.kind == PropertyValue::Kind::String && !value.text) {
        return ResultNullPointer("it needs a text");
    }
    return AcceptProperty(name, value);
}

Result CPropertyTable::set(const PropertyName& name, PropertyValue value) {
    Entry* entry = find(name);
    if (fOpenness == Openness::Open) {
        if (!entry) entry = &declare(name, {});
        entry->value = std::move(value);
        entry->wasSet = true;
        return 0;
    }
    Result result = check(entry, name, value);
    if (result.Failed()) {
        zTrace("{}: {} = {} was not set: {}\n", GetOwnerName(), name.GetText(), text_of(value),
               *result.GetMessage() ? result.GetMessage() : "refused");
        return result;
    }
    entry->value = std::move(value);
    entry->wasSet = true;
    return result;
}

Result CPropertyTable::SetProperty(const PropertyName& name, int value) {
    return set(name, PropertyValue::Of(value));
}
Result CPropertyTable::SetProperty(const PropertyName& name, bool value) {
    return set(name, PropertyValue::Of(value));
}
Result CPropertyTable::SetProperty(const PropertyName& name, CString* value) {
    return set(name, PropertyValue::Of(value));
}
Result CPropertyTable::SetFourProperty(const PropertyName& name, unsigned int value) {
    return set(name, PropertyValue::OfFour(value));
}

Result CPropertyTable::SetProperties(const IProperties* source) {
    if (!source || source == this) return 0;
    Result first = 0;
    PropertyName name{""};
    PropertyValue value;
    for (int index = 0; source->GetSetProperty(index, name, value); ++index) {
        if (fOpenness == Openness::Declared && !find(name)) continue;
        Result result = set(name, value);
        if (result.Failed() && first.Succeeded()) first = std::move(result);
    }
    return first;
}

Result CPropertyTable::get(const PropertyName& name, PropertyValue::Kind kind,
                           const Entry*& entry) const {
    entry = find(name);
    if (entry && entry->value.kind == kind) return 0;
    return ResultNotSupported("no such property: %s", name.GetText());
}

Result CPropertyTable::GetProperty(const PropertyName& name, bool& value) const {
    const Entry* entry = nullptr;
    Result result = get(name, PropertyValue::Kind::Bool, entry);
    if (result.Succeeded()) value = entry->value.flag;
    return result;
}

Result CPropertyTable::GetProperty(const PropertyName& name, int& value) const {
    const Entry* entry = nullptr;
    Result result = get(name, PropertyValue::Kind::Int, entry);
    if (result.Succeeded()) value = entry->value.integer;
    return result;
}

Result CPropertyTable::GetProperty(const PropertyName& name, RObject<CString>& value) const {
    const Entry* entry = nullptr;
    Result result = get(name, PropertyValue::Kind::String, entry);
    if (result.Succeeded()) value = entry->value.text;
    return result;
}

Result CPropertyTable::GetFourProperty(const PropertyName& name, unsigned int& value) const {
    const Entry* entry = nullptr;
    Result result = get(name, PropertyValue::Kind::Four, entry);
    if (result.Succeeded()) value = entry->value.four;
    return result;
}

bool CPropertyTable::GetSetProperty(int index, PropertyName& name, PropertyValue& value) const {
    for (const Entry& entry : fEntries) {
        if (!entry.wasSet || index-- > 0) continue;
        name = entry.name;
        value = entry.value;
        return true;
    }
    return false;
}

}  // namespace Quillon::Orb
