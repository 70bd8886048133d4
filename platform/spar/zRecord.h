#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "spar/export.h"
#include "spar/zVariable.h"

/// How FindChildByStrVariable compares texts.
enum z_match_method : unsigned int {
    Z_MATCH_PREFIX = 0,
    Z_MATCH_SUFFIX = 1,
    Z_MATCH_CONTAINS = 2,
    Z_MATCH_EXACT = 3,
    Z_MATCH_EXACT_NO_CASE = 4  ///< ASCII letters only
};

/// A node of a tree. It holds typed variables, looked up by id or by key, and owns its children,
/// which have an order.
///
/// Keys are tied to ids by zStringID. A key without an id of its own works all the same, and when
/// such a pair is entered later the two reach the same variable; a value from before moves to the
/// registered member of that id, if there is one, when it is next set through the record.
/// Registered members come first, in the order of their registration; the other variables follow in
/// the order in which they were first set. That is the order in which a record prints and is
/// written.
///
/// Getters convert as zVariable says and never fail: they give the default. Setters create what is
/// missing and replace the kind; their last argument is reserved and 0.
///
/// A plain value with no lock: the owner serialises access; concurrent reading is fine.
class SPAR_API zRecord {
public:
    zRecord() noexcept = default;
    /// Deep copy; children are made as plain zRecords.
    zRecord(const zRecord& source);
    virtual ~zRecord();

    /// Removes the variable, or unsets it if it is a registered member.
    virtual void RemoveID(unsigned long long id);

    /// Called before the variable `id` changes. `isNew`: it is about to come into being;
    /// `isRemoval`: it is about to go. Copy announces itself once, with id 0. Members that their
    /// owner sets directly change without a call. An override must not change this record.
    virtual void variable_changing(unsigned long long id, bool isNew, bool isRemoval);

    /// As Copy(source, true, true, {}).
    zRecord& operator=(const zRecord& source);

    /// Makes `count` members of this object part of its key space: access by id or key reaches the
    /// member from now on. Called once, from the constructor of the class that owns the members;
    /// `classId` names that class, all of whose objects register alike. The array is not kept.
    void RegisterVariables(unsigned int classId, zVariable** variables, int count);

    /// Takes over the variables of `source`, its children, or both, as copies all the way down.
    /// What the source lacks is unset here. Children are made by `childFactory`, or as plain
    /// records if it is empty. `source` may be this record, one of its descendants or one of its
    /// ancestors.
    void Copy(const zRecord& source, bool variables, bool children,
              const std::function<zRecord*()>& childFactory);

    // Reading, by id and by key.
    bool AsBool(unsigned long long id, bool defaultValue) const;
    bool AsBool(const char* key, bool defaultValue) const;
    int AsInt32(unsigned long long id, int defaultValue) const;
    int AsInt32(const char* key, int defaultValue) const;
    unsigned short AsUInt16(unsigned long long id, unsigned short defaultValue) const;
    unsigned short AsUInt16(const char* key, unsigned short defaultValue) const;
    unsigned int AsUInt32(unsigned long long id, unsigned int defaultValue) const;
    unsigned int AsUInt32(const char* key, unsigned int defaultValue) const;
    long long AsInt64(unsigned long long id, long long defaultValue) const;
    long long AsInt64(const char* key, long long defaultValue) const;
    unsigned long long AsUInt64(unsigned long long id, unsigned long long defaultValue) const;
    unsigned long long AsUInt64(const char* key, unsigned long long defaultValue) const;
    float AsFloat(unsigned long long id, float defaultValue) const;
    float AsFloat(const char* key, float defaultValue) const;
    double AsDouble(unsigned long long id, double defaultValue) const;
    double AsDouble(const char* key, double defaultValue) const;
    /// The text held stays owned by the record and good until that variable changes. The text of a
    /// number goes through `scratch`; without one it gives `defaultValue`.
    const char* AsCString(unsigned long long id, const char* defaultValue,
                          char (*scratch)[64] = nullptr) const;
    const char* AsCString(const char* key, const char* defaultValue,
                          char (*scratch)[64] = nullptr) const;
    std::string AsString(unsigned long long id, const std::string& defaultValue) const;
    std::string AsString(const char* key, const std::string& defaultValue) const;

    // Writing, by id and by key.
    void SetBool(unsigned long long id, bool value, char reserved = 0);
    void SetBool(const char* key, bool value, char reserved = 0);
    void SetInt32(unsigned long long id, int value, char reserved = 0);
    void SetInt32(const char* key, int value, char reserved = 0);
    void SetUInt32(unsigned long long id, unsigned int value, char reserved = 0);
    void SetUInt32(const char* key, unsigned int value, char reserved = 0);
    void SetInt64(unsigned long long id, long long value, char reserved = 0);
    void SetInt64(const char* key, long long value, char reserved = 0);
    void SetUInt64(unsigned long long id, unsigned long long value, char reserved = 0);
    void SetUInt64(const char* key, unsigned long long value, char reserved = 0);
    void SetFloat(unsigned long long id, float value, char reserved = 0);
    void SetFloat(const char* key, float value, char reserved = 0);
    void SetDouble(unsigned long long id, double value, char reserved = 0);
    void SetDouble(const char* key, double value, char reserved = 0);
    /// A null text removes the variable.
    void SetCString(unsigned long long id, const char* value, char reserved = 0);
    void SetCString(const char* key, const char* value, char reserved = 0);
    /// Any bytes, zero bytes too.
    void SetString(unsigned long long id, const std::string& value, char reserved = 0);
    void SetString(const char* key, const std::string& value, char reserved = 0);

    bool ExistsID(unsigned long long id) const { return FindVariable(id) != nullptr; }
    bool ExistsKey(const char* key) const { return FindVariable(key) != nullptr; }
    /// RemoveID of the key's variable.
    void RemoveKey(const char* key);
    /// Neither a set variable nor a child.
    bool IsEmpty() const;

    /// The variable if it is set, else null. Good until a variable of this record is added, removed
    /// or copied over.
    const zVariable* FindVariable(unsigned long long id) const;
    const zVariable* FindVariable(const char* key) const;
    /// How many variables are set.
    unsigned int VariableCount() const;
    /// Calls `function` on each set variable, in order, until it answers false. It must not change
    /// the record.
    void ForEachVariable(const std::function<bool(const zVariable&)>& function) const;

    unsigned int ChildCount() const { return static_cast<unsigned int>(fChildren.size()); }
    bool HasChildren() const { return !fChildren.empty(); }
    /// Stays owned by this record; null past the end.
    zRecord* Child(unsigned int index) const {
        return index < fChildren.size() ? fChildren[index] : nullptr;
    }
    /// Takes ownership. A position past the end, as 0x7FFFFFFF, or below 0 appends. A null child is
    /// kept in its place.
    void AddChild(zRecord* child, int position);
    /// Unlinks the child, which belongs to the caller from then on; no child of this record, no
    /// effect.
    void RemoveChildPtr(zRecord* child);
    /// Calls `function` on each child that is not null, in order, until it answers false. It may
    /// append children, which are then visited too.
    void ForEachChild(const std::function<bool(zRecord*)>& function) const;
    /// The child list, for a plain walk: for (zRecord* child : record.Children()). Entries may be
    /// null.
    const std::vector<zRecord*>& Children() const { return fChildren; }

    /// Looks through the children for a text under `id` that matches `value`; gives the first such
    /// child, or null. With `allLevels` the children of children are searched too, parents before
    /// their children, down to `maxDepth` levels.
    zRecord* FindChildByStrVariable(unsigned long long id, const char* value, bool allLevels,
                                    unsigned int maxDepth, z_match_method method) const;

    /// Dumps the record to the trace as one message. `indent` is the depth to begin at.
    void Print(int indent, int reserved) const;
    /// What Print dumps: one line a variable, children indented.
    std::string Description(int indent = 0) const;

    /// Takes variables and children of `source`, which ends empty; what was here goes. The children
    /// move without a copy.
    void TakeFrom(zRecord& source);

private:
    struct Layout;  // where the registered members of a class stand

    zVariable* find_place(unsigned long long id) const;
    zVariable* find_either(unsigned long long id) const;
    zVariable* find_member(unsigned long long id, unsigned char tag) const;
    const zVariable* find_set(unsigned long long id) const;
    const zVariable* find_set(const char* key) const;
    zVariable& changing(unsigned long long id);
    zVariable& append(unsigned long long id);
    void remove(zVariable& variable);
    bool is_hidden(const zVariable& variable) const;
    zVariable& member(unsigned int index) const;
    void set_text(unsigned long long id, std::string_view value);
    void place_copy(const zVariable& source);
    void reserve(unsigned int capacity);
    void clear_variables();
    void copy_variables(const zRecord& source);
    void copy_block(const zRecord& source);
    void swap_block(zRecord& other);
    void reserve_texts(const zRecord& source);
    void drop_block();
    void note_text(const zVariable& variable);
    template <class Function>
    void for_each_text(const Function& function) const;
    void describe(std::string& text, int indent) const;

    // One block: a byte of each id's hash, padded to whole vectors, then the variables. Finding an
    // id compares sixteen of these bytes at a time. Every variable of the block is set; members
    // may be unset.
    zVariable* fVariables = nullptr;
    unsigned int fCount = 0;
    unsigned int fCapacity = 0;
    const Layout* fLayout = nullptr;

    // The texts that a copy brought into the block stand in one piece of memory of the record's, so
    // that copying takes two allocations at most, and none over an earlier copy. A text that is set
    // later belongs to its variable.
    std::unique_ptr<char[]> fTexts;
    std::size_t fTextCapacity = 0;  // bytes

    std::vector<zRecord*> fChildren;
};
