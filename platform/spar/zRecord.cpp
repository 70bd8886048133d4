#include "spar/zRecord.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <type_traits>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "spar/zMutex.h"
#include "spar/zStringID.h"

namespace {

constexpr unsigned int kVector = 16;  // hash bytes compared at a time
constexpr unsigned int kFirstCapacity = 4;

unsigned int padded(unsigned int count) {
    return (count + kVector - 1) / kVector * kVector;
}

/// Of a tag, that its variable may be a string; the rest is seven bits of the id's hash. Copying
/// and clearing look at the variables with this bit only. It may outlive the string.
constexpr unsigned char kTextBit = 0x80;

unsigned char tag_of(unsigned long long id) {
    return static_cast<unsigned char>((id * 0x9e3779b97f4a7c15ull) >> 57);
}

/// A bit for each of the sixteen tags that has `tag`'s hash.
unsigned int matches(const unsigned char* tags, unsigned char tag) {
#if defined(__SSE2__)
    const __m128i bit = _mm_set1_epi8(static_cast<char>(kTextBit));
    const __m128i held = _mm_loadu_si128(reinterpret_cast<const __m128i*>(tags));
    const __m128i wanted = _mm_set1_epi8(static_cast<char>(tag | kTextBit));
    return static_cast<unsigned int>(
        _mm_movemask_epi8(_mm_cmpeq_epi8(_mm_or_si128(held, bit), wanted)));
#else
    unsigned int mask = 0;
    for (unsigned int i = 0; i < kVector; ++i) {
        mask |= ((tags[i] & ~kTextBit) == tag ? 1u : 0u) << i;
    }
    return mask;
#endif
}

/// A bit for each of the sixteen tags that has the text bit.
unsigned int texts(const unsigned char* tags) {
#if defined(__SSE2__)
    const __m128i held = _mm_loadu_si128(reinterpret_cast<const __m128i*>(tags));
    return static_cast<unsigned int>(_mm_movemask_epi8(held));
#else
    unsigned int mask = 0;
    for (unsigned int i = 0; i < kVector; ++i) mask |= (tags[i] & kTextBit ? 1u : 0u) << i;
    return mask;
#endif
}

/// The hash bytes stand right before the variables of their block.
unsigned char* tags_of(zVariable* variables, unsigned int capacity) {
    return reinterpret_cast<unsigned char*>(variables) - padded(capacity);
}

zVariable* allocate_block(unsigned int capacity) {
    const std::size_t tagBytes = padded(capacity);
    auto* block = static_cast<unsigned char*>(
        ::operator new (tagBytes + std::size_t{capacity} * sizeof(zVariable)));
    std::memset(block, 0, tagBytes);
    return reinterpret_cast<zVariable*>(block + tagBytes);
}

void free_block(zVariable* variables, unsigned int capacity) {
    if (variables != nullptr) ::operator delete(tags_of(variables, capacity));
}

/// Moves variables to raw memory by their bytes, which is all that a variable consists of: what it
/// owns hangs on a pointer, and nothing points back.
void relocate(zVariable* target, const zVariable* source, std::size_t count) {
    if (count != 0) {
        std::memmove(static_cast<void*>(target), static_cast<const void*>(source),
                     count * sizeof(zVariable));
    }
}

}  // namespace

/// Where the registered members of a class stand, counted from the start of the record. All objects
/// of the class share one: it is made at the first registration and lives as long as the process.
struct zRecord::Layout {
    unsigned int classID;
    unsigned int count;
    std::vector<std::ptrdiff_t> offsets;
    std::vector<unsigned long long> ids;
    std::vector<unsigned char> tags;  // padded to whole vectors
    const Layout* next;

    static inline std::atomic<const Layout*> gFirst{nullptr};  // pushed to under gLock
    static inline zMutex gLock;

    bool Fits(unsigned int wantedClass, const zRecord* record, zVariable* const* variables,
              unsigned int wantedCount) const;
    static const Layout* Get(unsigned int classID, const zRecord* record,
                             zVariable* const* variables, unsigned int count);
    static const Layout* FindFrom(const Layout* first, unsigned int classID, const zRecord* record,
                                  zVariable* const* variables, unsigned int count);
};

static std::ptrdiff_t offset_in(const zRecord* record, const zVariable* variable) {
    return reinterpret_cast<const char*>(variable) - reinterpret_cast<const char*>(record);
}

bool zRecord::Layout::Fits(unsigned int wantedClass, const zRecord* record,
                           zVariable* const* variables, unsigned int wantedCount) const {
    if (classID != wantedClass || count != wantedCount) return false;
    unsigned long long difference = 0;  // gathered without a branch: it is none but for a mistake
    for (unsigned int i = 0; i < count; ++i) {
        difference |= static_cast<unsigned long long>(offsets[i] ^ offset_in(record, variables[i]));
        difference |= ids[i] ^ variables[i]->ID();
    }
    return difference == 0;
}

const zRecord::Layout* zRecord::Layout::FindFrom(const Layout* first, unsigned int classID,
                                                 const zRecord* record, zVariable* const* variables,
                                                 unsigned int count) {
    while (first != nullptr && !first->Fits(classID, record, variables, count)) first = first->next;
    return first;
}

const zRecord::Layout* zRecord::Layout::Get(unsigned int classID, const zRecord* record,
                                            zVariable* const* variables, unsigned int count) {
    const Layout* first = gFirst.load(std::memory_order_acquire);
    const Layout* known = FindFrom(first, classID, record, variables, count);
    if (known != nullptr) return known;

    zMutexLock lock(gLock);
    first = gFirst.load(std::memory_order_relaxed);
    known = FindFrom(first, classID, record, variables, count);
    if (known != nullptr) return known;  // another thread made it meanwhile
    auto made = std::make_unique<Layout>(Layout{classID, count, {}, {}, {}, first});
    made->tags.resize(padded(count));
    for (unsigned int i = 0; i < count; ++i) {
        made->offsets.push_back(offset_in(record, variables[i]));
        made->ids.push_back(variables[i]->ID());
        made->tags[i] = tag_of(variables[i]->ID());
    }
    gFirst.store(made.get(), std::memory_order_release);
    return made.release();
}

// Finding. Hot: inlined into every getter.

inline zVariable& zRecord::member(unsigned int index) const {
    char* record = reinterpret_cast<char*>(const_cast<zRecord*>(this));
    return *reinterpret_cast<zVariable*>(record + fLayout->offsets[index]);
}

inline zVariable* zRecord::find_member(unsigned long long id, unsigned char tag) const {
    for (unsigned int from = 0; from < fLayout->count; from += kVector) {
        unsigned int mask = matches(fLayout->tags.data() + from, tag);
        for (; mask != 0; mask &= mask - 1) {
            const unsigned int index = from + static_cast<unsigned int>(__builtin_ctz(mask));
            if (index < fLayout->count && fLayout->ids[index] == id) return &member(index);
        }
    }
    return nullptr;
}

/// The variable of exactly that id, set or, if it is a member, unset.
inline zVariable* zRecord::find_place(unsigned long long id) const {
    const unsigned char tag = tag_of(id);
    if (fLayout != nullptr) {
        zVariable* found = find_member(id, tag);
        if (found != nullptr) return found;
    }
    const unsigned char* tags = tags_of(fVariables, fCapacity);
    for (unsigned int from = 0; from < fCount; from += kVector) {
        unsigned int mask = matches(tags + from, tag);
        for (; mask != 0; mask &= mask - 1) {
            const unsigned int index = from + static_cast<unsigned int>(__builtin_ctz(mask));
            if (index < fCount && fVariables[index].ID() == id) return fVariables + index;
        }
    }
    return nullptr;
}

/// The variable that `id` stands for, under whichever of its ids it was first set; unset only if it
/// is a member.
inline zVariable* zRecord::find_either(unsigned long long id) const {
    zVariable* found = find_place(id);
    if (found != nullptr && found->IsSet()) return found;
    const unsigned long long other = zStringID::Default().OtherID(id);
    zVariable* twin = other == 0 ? nullptr : find_place(other);
    return found == nullptr || (twin != nullptr && twin->IsSet()) ? twin : found;
}

/// Whether the variable was set under an id made for its key while the key's own id, entered later,
/// is set as well: the own one is what the key reaches, and what counts.
bool zRecord::is_hidden(const zVariable& variable) const {
    if (!zStringID::IsMade(variable.ID())) return false;
    const unsigned long long own = zStringID::Default().OtherID(variable.ID());
    const zVariable* found = own == 0 ? nullptr : find_place(own);
    return found != nullptr && found->IsSet();
}

inline const zVariable* zRecord::find_set(unsigned long long id) const {
    const zVariable* found = find_either(id);
    return found != nullptr && found->IsSet() ? found : nullptr;
}

inline const zVariable* zRecord::find_set(const char* key) const {
    if (key == nullptr) return nullptr;
    const unsigned long long id = zStringID::Default().Find(key);
    return id == 0 ? nullptr : find_set(id);
}

/// Calls `function` on each string of the block.
template <class Function>
inline void zRecord::for_each_text(const Function& function) const {
    const unsigned char* tags = tags_of(fVariables, fCapacity);
    for (unsigned int from = 0; from < fCount; from += kVector) {
        for (unsigned int mask = texts(tags + from); mask != 0; mask &= mask - 1) {
            const unsigned int index = from + static_cast<unsigned int>(__builtin_ctz(mask));
            if (index < fCount && fVariables[index].IsHeapBacked()) function(fVariables[index]);
        }
    }
}

// Life and copying.

zRecord::zRecord(const zRecord& source) : zRecord() {
    copy_variables(source);
    if (source.HasChildren()) Copy(source, false, true, {});
}

zRecord::~zRecord() {
    drop_block();
    free_block(fVariables, fCapacity);
    for (zRecord* child : fChildren) delete child;
}

zRecord& zRecord::operator=(const zRecord& source) {
    Copy(source, true, true, {});
    return *this;
}

void zRecord::variable_changing(unsigned long long /*id*/, bool /*isNew*/, bool /*isRemoval*/) {}

void zRecord::RegisterVariables(unsigned int classId, zVariable** variables, int count) {
    if (variables == nullptr || count <= 0) return;
    fLayout = Layout::Get(classId, this, variables, static_cast<unsigned int>(count));
    for (int i = 0; i < count; ++i) variables[i]->fKind |= zVariable::kPlaceFlag;
}

namespace {

/// Children without a parent: gone with this unless somebody takes the list.
struct Orphans {
    std::vector<zRecord*> list;

    Orphans() = default;
    Orphans(const Orphans&) = delete;
    Orphans& operator=(const Orphans&) = delete;
    ~Orphans() {
        for (zRecord* child : list) delete child;
    }
};

void append_copies(std::vector<zRecord*>& list, const std::vector<zRecord*>& children,
                   const std::function<zRecord*()>& childFactory) {
    list.reserve(children.size());
    for (const zRecord* child : children) {
        list.push_back(nullptr);
        if (child == nullptr) continue;
        if (childFactory) list.back() = childFactory();
        if (list.back() == nullptr) list.back() = new zRecord;
        list.back()->Copy(*child, true, true, childFactory);
    }
}

}  // namespace

void zRecord::Copy(const zRecord& source, bool variables, bool children,
                   const std::function<zRecord*()>& childFactory) {
    if (&source == this) return;
    // New children come first and old ones go last: the source may be one of them, or hold us.
    Orphans orphans;
    if (children) append_copies(orphans.list, source.fChildren, childFactory);
    if (variables) {
        variable_changing(0, false, false);
        copy_variables(source);
    }
    if (children) fChildren.swap(orphans.list);
}

void zRecord::TakeFrom(zRecord& source) {
    if (&source == this) return;
    variable_changing(0, false, false);
    if (fLayout == nullptr && source.fLayout == nullptr) {
        swap_block(source);
    } else {
        copy_variables(source);
    }
    source.clear_variables();
    Orphans orphans;  // the source may be one of them
    orphans.list.swap(fChildren);
    fChildren.swap(source.fChildren);
}

void zRecord::swap_block(zRecord& other) {
    std::swap(fVariables, other.fVariables);
    std::swap(fCount, other.fCount);
    std::swap(fCapacity, other.fCapacity);
    std::swap(fTexts, other.fTexts);
    std::swap(fTextCapacity, other.fTextCapacity);
}

void zRecord::copy_variables(const zRecord& source) {
    if (fLayout == source.fLayout) {
        if (fLayout != nullptr) {
            for (unsigned int i = 0; i < fLayout->count; ++i) member(i) = source.member(i);
        }
        copy_block(source);
        return;
    }
    clear_variables();
    if (source.fLayout != nullptr) {
        for (unsigned int i = 0; i < source.fLayout->count; ++i) place_copy(source.member(i));
    }
    for (unsigned int i = 0; i < source.fCount; ++i) {
        if (!source.is_hidden(source.fVariables[i])) place_copy(source.fVariables[i]);
    }
}

/// Copies a variable that this record, cleared before, does not hold yet.
void zRecord::place_copy(const zVariable& source) {
    if (!source.IsSet()) return;
    zVariable copy(
        source);  // copied before a place is made: no unset one is left if memory runs out
    zVariable* place = fLayout == nullptr ? nullptr : find_either(source.ID());
    zVariable& target = place == nullptr ? append(source.ID()) : *place;
    target.take(copy);
    if (target.IsHeapBacked()) note_text(target);
}

/// Makes the block a copy of the source's: the bytes at once, then the texts. All memory is there
/// before the first byte moves.
void zRecord::copy_block(const zRecord& source) {
    drop_block();
    if (source.fCount == 0) return;
    if (fCapacity < source.fCount) reserve(source.fCount);
    reserve_texts(source);
    std::memcpy(tags_of(fVariables, fCapacity), tags_of(source.fVariables, source.fCapacity),
                source.fCount);
    relocate(fVariables, source.fVariables, source.fCount);
    fCount = source.fCount;
    char* at = fTexts.get();
    for_each_text([&](zVariable& variable) {
        variable.copy_text_to(at);
        at += variable.Text().size() + 1;
    });
}

/// Room for all texts of the source's block.
void zRecord::reserve_texts(const zRecord& source) {
    std::size_t size = 0;
    source.for_each_text([&](const zVariable& variable) { size += variable.Text().size() + 1; });
    if (size <= fTextCapacity) return;
    fTexts.reset(new char[size]);
    fTextCapacity = size;
}

void zRecord::clear_variables() {
    if (fLayout != nullptr) {
        for (unsigned int i = 0; i < fLayout->count; ++i) member(i).Unset();
    }
    drop_block();
}

/// Removes all variables of the block and keeps its memory.
void zRecord::drop_block() {
    for_each_text([](zVariable& variable) { variable.Unset(); });
    fCount = 0;
}

/// To be called when a variable, of the block or a member, has become a string.
void zRecord::note_text(const zVariable& variable) {
    if (!variable.IsPlaced()) tags_of(fVariables, fCapacity)[&variable - fVariables] |= kTextBit;
}

/// Room for `capacity` variables. What is held moves along.
void zRecord::reserve(unsigned int capacity) {
    zVariable* grown = allocate_block(capacity);
    if (fCount != 0) {
        std::memcpy(tags_of(grown, capacity), tags_of(fVariables, fCapacity), fCount);
        relocate(grown, fVariables, fCount);
    }
    free_block(fVariables, fCapacity);
    fVariables = grown;
    fCapacity = capacity;
}

// Changing.

/// A new variable of that id, unset.
zVariable& zRecord::append(unsigned long long id) {
    if (fCount == fCapacity) reserve(std::max(kFirstCapacity, fCapacity * 2));
    tags_of(fVariables, fCapacity)[fCount] = tag_of(id);
    return *new (fVariables + fCount++) zVariable(id);
}

/// The variable to write to, announced, and created if it is missing.
zVariable& zRecord::changing(unsigned long long id) {
    zVariable* found = find_either(id);
    variable_changing(id, found == nullptr || !found->IsSet(), false);
    if (found == nullptr) return append(id);
    if (found->ID() == id) return *found;
    // A value from before the key had this id makes way for the member that has it.
    zVariable* place = find_place(id);
    if (place == nullptr) return *found;
    remove(*found);
    return *place;
}

void zRecord::RemoveID(unsigned long long id) {
    if (find_set(id) == nullptr) return;
    variable_changing(id, false, true);
    // Under both ids of its key, if it was set under both.
    for (zVariable* found = find_either(id); found != nullptr && found->IsSet();) {
        remove(*found);
        found = find_either(id);
    }
}

void zRecord::remove(zVariable& variable) {
    if (variable.IsPlaced()) {
        variable.Unset();
        return;
    }
    variable.~zVariable();
    const std::size_t index = &variable - fVariables;
    unsigned char* tags = tags_of(fVariables, fCapacity);
    --fCount;
    std::memmove(tags + index, tags + index + 1, fCount - index);
    relocate(&variable, &variable + 1, fCount - index);
}

void zRecord::RemoveKey(const char* key) {
    if (key == nullptr) return;
    const unsigned long long id = zStringID::Default().Find(key);
    if (id != 0) RemoveID(id);
}

// Variables as a whole.

const zVariable* zRecord::FindVariable(unsigned long long id) const {
    return find_set(id);
}

const zVariable* zRecord::FindVariable(const char* key) const {
    return find_set(key);
}

bool zRecord::IsEmpty() const {
    return fChildren.empty() && VariableCount() == 0;
}

unsigned int zRecord::VariableCount() const {
    unsigned int count = 0;
    for (unsigned int i = 0; fLayout != nullptr && i < fLayout->count; ++i) {
        if (member(i).IsSet()) ++count;
    }
    for (unsigned int i = 0; i < fCount; ++i) {
        if (!is_hidden(fVariables[i])) ++count;
    }
    return count;
}

void zRecord::ForEachVariable(const std::function<bool(const zVariable&)>& function) const {
    for (unsigned int i = 0; fLayout != nullptr && i < fLayout->count; ++i) {
        if (member(i).IsSet() && !function(member(i))) return;
    }
    for (unsigned int i = 0; i < fCount; ++i) {
        if (!is_hidden(fVariables[i]) && !function(fVariables[i])) return;
    }
}

// Reading.

bool zRecord::AsBool(unsigned long long id, bool defaultValue) const {
    const zVariable* found = find_set(id);
    return found == nullptr ? defaultValue : found->AsBool(defaultValue);
}

bool zRecord::AsBool(const char* key, bool defaultValue) const {
    const zVariable* found = find_set(key);
    return found == nullptr ? defaultValue : found->AsBool(defaultValue);
}

int zRecord::AsInt32(unsigned long long id, int defaultValue) const {
    const zVariable* found = find_set(id);
    return found == nullptr ? defaultValue : found->AsInt32(defaultValue);
}

int zRecord::AsInt32(const char* key, int defaultValue) const {
    const zVariable* found = find_set(key);
    return found == nullptr ? defaultValue : found->AsInt32(defaultValue);
}

unsigned short zRecord::AsUInt16(unsigned long long id, unsigned short defaultValue) const {
    const zVariable* found = find_set(id);
    return found == nullptr ? defaultValue : found->AsUInt16(defaultValue);
}

unsigned short zRecord::AsUInt16(const char* key, unsigned short defaultValue) const {
    const zVariable* found = find_set(key);
    return found == nullptr ? defaultValue : found->AsUInt16(defaultValue);
}

unsigned int zRecord::AsUInt32(unsigned long long id, unsigned int defaultValue) const {
    const zVariable* found = find_set(id);
    return found == nullptr ? defaultValue : found->AsUInt32(defaultValue);
}

unsigned int zRecord::AsUInt32(const char* key, unsigned int defaultValue) const {
    const zVariable* found = find_set(key);
    return found == nullptr ? defaultValue : found->AsUInt32(defaultValue);
}

long long zRecord::AsInt64(unsigned long long id, long long defaultValue) const {
    const zVariable* found = find_set(id);
    return found == nullptr ? defaultValue : found->AsInt64(defaultValue);
}

long long zRecord::AsInt64(const char* key, long long defaultValue) const {
    const zVariable* found = find_set(key);
    return found == nullptr ? defaultValue : found->AsInt64(defaultValue);
}

unsigned long long zRecord::AsUInt64(unsigned long long id, unsigned long long defaultValue) const {
    const zVariable* found = find_set(id);
    return found == nullptr ? defaultValue : found->AsUInt64(defaultValue);
}

unsigned long long zRecord::AsUInt64(const char* key, unsigned long long defaultValue) const {
    const zVariable* found = find_set(key);
    return found == nullptr ? defaultValue : found->AsUInt64(defaultValue);
}

float zRecord::AsFloat(unsigned long long id, float defaultValue) const {
    const zVariable* found = find_set(id);
    return found == nullptr ? defaultValue : found->AsFloat(defaultValue);
}

float zRecord::AsFloat(const char* key, float defaultValue) const {
    const zVariable* found = find_set(key);
    return found == nullptr ? defaultValue : found->AsFloat(defaultValue);
}

double zRecord::AsDouble(unsigned long long id, double defaultValue) const {
    const zVariable* found = find_set(id);
    return found == nullptr ? defaultValue : found->AsDouble(defaultValue);
}

double zRecord::AsDouble(const char* key, double defaultValue) const {
    const zVariable* found = find_set(key);
    return found == nullptr ? defaultValue : found->AsDouble(defaultValue);
}

const char* zRecord::AsCString(unsigned long long id, const char* defaultValue,
                               char (*scratch)[64]) const {
    const zVariable* found = find_set(id);
    return found == nullptr ? defaultValue : found->AsCString(defaultValue, scratch);
}

const char* zRecord::AsCString(const char* key, const char* defaultValue,
                               char (*scratch)[64]) const {
    const zVariable* found = find_set(key);
    return found == nullptr ? defaultValue : found->AsCString(defaultValue, scratch);
}

std::string zRecord::AsString(unsigned long long id, const std::string& defaultValue) const {
    const zVariable* found = find_set(id);
    return found == nullptr ? defaultValue : found->AsString(defaultValue);
}

std::string zRecord::AsString(const char* key, const std::string& defaultValue) const {
    const zVariable* found = find_set(key);
    return found == nullptr ? defaultValue : found->AsString(defaultValue);
}

// Writing.

void zRecord::SetBool(unsigned long long id, bool value, char /*reserved*/) {
    changing(id).SetBool(value);
}

void zRecord::SetBool(const char* key, bool value, char reserved) {
    if (key != nullptr) SetBool(zStringID::Default().FindOrMake(key), value, reserved);
}

void zRecord::SetInt32(unsigned long long id, int value, char /*reserved*/) {
    changing(id).SetInt32(value);
}

void zRecord::SetInt32(const char* key, int value, char reserved) {
    if (key != nullptr) SetInt32(zStringID::Default().FindOrMake(key), value, reserved);
}

void zRecord::SetUInt32(unsigned long long id, unsigned int value, char /*reserved*/) {
    changing(id).SetUInt32(value);
}

void zRecord::SetUInt32(const char* key, unsigned int value, char reserved) {
    if (key != nullptr) SetUInt32(zStringID::Default().FindOrMake(key), value, reserved);
}

void zRecord::SetInt64(unsigned long long id, long long value, char /*reserved*/) {
    changing(id).SetInt64(value);
}

void zRecord::SetInt64(const char* key, long long value, char reserved) {
    if (key != nullptr) SetInt64(zStringID::Default().FindOrMake(key), value, reserved);
}

void zRecord::SetUInt64(unsigned long long id, unsigned long long value, char /*reserved*/) {
    changing(id).SetUInt64(value);
}

void zRecord::SetUInt64(const char* key, unsigned long long value, char reserved) {
    if (key != nullptr) SetUInt64(zStringID::Default().FindOrMake(key), value, reserved);
}

void zRecord::SetFloat(unsigned long long id, float value, char /*reserved*/) {
    changing(id).SetFloat(value);
}

void zRecord::SetFloat(const char* key, float value, char reserved) {
    if (key != nullptr) SetFloat(zStringID::Default().FindOrMake(key), value, reserved);
}

void zRecord::SetDouble(unsigned long long id, double value, char /*reserved*/) {
    changing(id).SetDouble(value);
}

void zRecord::SetDouble(const char* key, double value, char reserved) {
    if (key != nullptr) SetDouble(zStringID::Default().FindOrMake(key), value, reserved);
}

void zRecord::SetCString(unsigned long long id, const char* value, char /*reserved*/) {
    if (value == nullptr) {
        RemoveID(id);
    } else {
        set_text(id, value);
    }
}

void zRecord::SetCString(const char* key, const char* value, char reserved) {
    if (value == nullptr) {
        RemoveKey(key);
    } else if (key != nullptr) {
        SetCString(zStringID::Default().FindOrMake(key), value, reserved);
    }
}

void zRecord::SetString(unsigned long long id, const std::string& value, char /*reserved*/) {
    set_text(id, value);
}

void zRecord::SetString(const char* key, const std::string& value, char /*reserved*/) {
    if (key != nullptr) set_text(zStringID::Default().FindOrMake(key), value);
}

/// The text is copied before the variable is touched: it may be that variable's own, or memory may
/// run out.
void zRecord::set_text(unsigned long long id, std::string_view value) {
    zVariable text(id);
    text.SetText(value);
    zVariable& target = changing(id);
    target.take(text);
    note_text(target);
}
