#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <expat.h>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "spar/zFileStream.h"
#include "spar/zMemory.h"
#include "spar/zRecord.h"
#include "spar/zStringID.h"
#include "spar/zXML.h"
#include "spar/zXMLShortcut.h"
#include "spar/zXMLText.h"

static constexpr unsigned long long kTagID = 'xTag';
static constexpr unsigned long kChunkBytes = 64 * 1024;
// The parser may look at a tag that it found cut only when twice as much of it is there.
static constexpr unsigned long kMaxKeptBackBytes = 2 * zXML::kMaxTagBytes + kChunkBytes;
static constexpr unsigned long kMaxHeldBytes = 256;  // an element that a shortcut might still take

// What one text that fills a tag takes, three times over; a tag that is all attributes would take
// twice this before they could be counted.
static constexpr std::size_t kMaxParserBytes = 96ul << 20;

namespace {

/// Bounds the memory that the parser takes for itself.
///
/// The parser's allocator has no argument of its own: the thread notes whose parser it is in.
class ParserMemory {
public:
    /// Stands around each call of the parser.
    class Use {
    public:
        explicit Use(ParserMemory& memory) : fOuter(gUsed) { gUsed = &memory; }
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        ~Use() { gUsed = fOuter; }

    private:
        ParserMemory* const fOuter;  // of a parser whose call led to this one
    };

    /// Whether something was refused that would have passed the bound.
    bool HasRefused() const { return fHasRefused; }

    static constexpr XML_Memory_Handling_Suite Suite() { return {&allocate, &resize, &release}; }

private:
    struct alignas(std::max_align_t) Head {
        std::size_t size;
    };

    static void* allocate(std::size_t size) { return resize(nullptr, size); }
    static void* resize(void* content, std::size_t size);
    static void release(void* content);

    static inline thread_local ParserMemory* gUsed = nullptr;

    std::size_t fBytes = 0;
    bool fHasRefused = false;
};

void* ParserMemory::resize(void* content, std::size_t size) {
    Head* former = content == nullptr ? nullptr : static_cast<Head*>(content) - 1;
    const std::size_t others = gUsed->fBytes - (former == nullptr ? 0 : former->size);
    if (size > kMaxParserBytes - others) {
        gUsed->fHasRefused = true;
        return nullptr;
    }
    auto* block = static_cast<Head*>(std::realloc(former, sizeof(Head) + size));
    if (block == nullptr) return nullptr;
    block->size = size;
    gUsed->fBytes = others + size;
    return block + 1;
}

void ParserMemory::release(void* content) {
    if (content == nullptr) return;
    Head* block = static_cast<Head*>(content) - 1;
    gUsed->fBytes -= block->size;
    std::free(block);
}

/// Builds a tree of records out of the parser's calls.
///
/// Elements hang in their parents from their start tag on. When the document ends too early, those
/// that are still open stay only as holders of what stands complete in them.
class Reader {
public:
    explicit Reader(zXMLShortcut* shortcut);
    ~Reader();
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    int Read(zStream& stream);
    zRecord& Root() { return fRoot; }

private:
    struct Open {
        zRecord* record;
        bool holdsComplete;
    };

    static void XMLCALL on_start(void* self, const XML_Char* name, const XML_Char** attributes);
    static void XMLCALL on_end(void* self, const XML_Char* name);
    static void XMLCALL on_doctype(void* self, const XML_Char* name, const XML_Char* systemID,
                                   const XML_Char* publicID, int hasSubset);
    static void XMLCALL on_cdata_start(void* self);
    static void XMLCALL on_cdata_end(void* self);

    void begin_element(const char* name, const char** attributes);
    int open_record(zRecord*& record);
    int set_attribute(zRecord& record, const char* name, const char* value);
    void end_element();
    int parse(std::string_view text, bool isFinal);
    int feed(std::string_view& text, bool isFinal);
    bool stands_between_tags() const;
    int take_short(std::string_view& text);
    unsigned long kept_back() const;
    void note_front(const char* chunk, unsigned long size);
    int result_of_failure(zStream& stream, const char* chunk, unsigned long size);
    int close_early_before_zeros(zStream& stream, const char* chunk, unsigned long size);
    int expect_zeros_to_the_end(zStream& stream, const char* data, unsigned long size) const;
    int close_early();
    void stop(int result);

    ParserMemory fMemory;
    XML_Parser fParser;
    zRecord fRoot;
    std::vector<Open> fOpen;
    zXMLShortcut* const fShortcut;  // not owned, may be null
    unsigned long fBytes = 0;
    unsigned long fGiven = 0;  // bytes that the parser got: all but what the shortcut took
    long long fDone = 0;       // of these, the bytes that it was through with when it last told
    bool fIsInCdata = false;   // known with a shortcut only
    bool fIsWide = false;      // characters of two bytes, one of which may be zero
    unsigned int fElements = 0;
    unsigned int fVariables = 0;
    unsigned int fNewKeys = 0;
    int fResult = 0;             // of a handler that stopped the parser, or of a bound
    std::exception_ptr fThrown;  // by a handler, held while the parser's C frames unwind
};

Reader::Reader(zXMLShortcut* shortcut) : fShortcut(shortcut) {
    const ParserMemory::Use use(fMemory);
    const XML_Memory_Handling_Suite suite = ParserMemory::Suite();
    fParser = XML_ParserCreate_MM(nullptr, &suite, nullptr);
    if (fParser == nullptr) throw std::bad_alloc();
    XML_SetUserData(fParser, this);
    XML_SetElementHandler(fParser, on_start, on_end);
    XML_SetStartDoctypeDeclHandler(fParser, on_doctype);
    if (fShortcut == nullptr) return;
    XML_SetCdataSectionHandler(fParser, on_cdata_start, on_cdata_end);
    // A parser that never had to keep anything back does not tell where it stands.
    XML_GetBuffer(fParser, 1);
}

Reader::~Reader() {
    const ParserMemory::Use use(fMemory);
    XML_ParserFree(fParser);
}

void Reader::stop(int result) {
    fResult = result;
    XML_StopParser(fParser, XML_FALSE);
}

void XMLCALL Reader::on_start(void* self, const XML_Char* name, const XML_Char** attributes) {
    auto& reader = *static_cast<Reader*>(self);
    try {
        reader.begin_element(name, attributes);
    } catch (...) {
        reader.fThrown = std::current_exception();
        reader.stop(zXML::kTooBig);
    }
}

void XMLCALL Reader::on_end(void* self, const XML_Char* /*name*/) {
    auto& reader = *static_cast<Reader*>(self);
    // A parser that is stopped at the start of an empty element still tells of its end.
    if (reader.fResult == 0) reader.end_element();
}

/// Entities are declared in document types: without these there is nothing that could expand.
void XMLCALL Reader::on_doctype(void* self, const XML_Char* /*name*/, const XML_Char* /*systemID*/,
                                const XML_Char* /*publicID*/, int /*hasSubset*/) {
    static_cast<Reader*>(self)->stop(zXML::kDoctype);
}

void XMLCALL Reader::on_cdata_start(void* self) {
    static_cast<Reader*>(self)->fIsInCdata = true;
}

void XMLCALL Reader::on_cdata_end(void* self) {
    static_cast<Reader*>(self)->fIsInCdata = false;
}

int Reader::open_record(zRecord*& record) {
    if (fOpen.size() >= static_cast<std::size_t>(zXML::kMaxDepth)) return zXML::kTooDeep;
    if (++fElements > zXML::kMaxElements) return zXML::kTooBig;
    record = &fRoot;
    if (!fOpen.empty()) {
        auto child = std::make_unique<zRecord>();
        record = child.get();
        fOpen.back().record->AddChild(child.release(), 0x7FFFFFFF);
    }
    fOpen.push_back({record, false});
    return 0;
}

int Reader::set_attribute(zRecord& record, const char* name, const char* value) {
    if (++fVariables > zXML::kMaxVariables) return zXML::kTooBig;
    const auto id = id_from_xml(name);
    if (id) {
        set_from_xml(record, *id, value);
        return 0;
    }
    const std::string key = key_from_xml(name);
    zStringID& ids = zStringID::Default();
    // New keys stay in the table for good: one document may not fill it.
    unsigned long long known = ids.Find(key);
    if (known == 0) {
        if (++fNewKeys > zXML::kMaxNewKeys) return zXML::kTooBig;
        known = ids.FindOrMake(key);
    }
    set_from_xml(record, known, value);
    return 0;
}

void Reader::begin_element(const char* name, const char** attributes) {
    const int tagBytes = XML_GetCurrentByteCount(fParser);
    if (static_cast<unsigned long>(tagBytes) > zXML::kMaxTagBytes) return stop(zXML::kTooBig);
    zRecord* record = nullptr;
    const int opened = open_record(record);
    if (opened != 0) return stop(opened);
    if (name != kUntagged) record->SetString(kTagID, name_from_xml(name));
    unsigned int count = 0;
    for (; *attributes != nullptr; attributes += 2) {
        const int set = ++count > zXML::kMaxAttributes
                            ? zXML::kTooBig
                            : set_attribute(*record, attributes[0], attributes[1]);
        if (set != 0) return stop(set);
    }
}

void Reader::end_element() {
    fOpen.pop_back();
    if (!fOpen.empty()) fOpen.back().holdsComplete = true;
}

int Reader::parse(std::string_view text, bool isFinal) {
    const ParserMemory::Use use(fMemory);
    const auto size = static_cast<int>(text.size());
    const auto status = XML_Parse(fParser, text.data(), size, isFinal ? 1 : 0);
    if (fThrown) std::rethrow_exception(fThrown);
    fGiven += text.size();
    // A parser whose buffer moved tells no place until it has looked at what it got.
    fDone = std::max<long long>(XML_GetCurrentByteIndex(fParser), fDone);
    return status == XML_STATUS_OK ? 0 : -1;
}

/// Gives `text` to the parser, but for the elements that the shortcut takes. What `text` is left
/// with waits for more: an element that is cut behind those that were taken.
int Reader::feed(std::string_view& text, bool isFinal) {
    bool hasTaken = false;
    while (fShortcut != nullptr && !fIsWide) {
        const std::size_t at = text.find(fShortcut->Opening());
        if (at == std::string_view::npos) break;
        if (at != 0 && parse(text.substr(0, at), false) != 0) return -1;
        text.remove_prefix(at);
        // What is not taken ends the search: a parser that is given a long comment in small pieces
        // would look through all of it for each.
        const std::size_t before = text.size();
        if (take_short(text) != 0) return -1;
        if (text.size() == before) break;
        hasTaken = true;
    }
    if (hasTaken && !isFinal && text.size() <= kMaxHeldBytes) return 0;
    const int result = parse(text, isFinal);
    text = {};
    return result;
}

/// Whether the parser is through with all that it got and awaits the content of the innermost
/// element: an element that came next would be that one's child, as its text says it.
bool Reader::stands_between_tags() const {
    return !fOpen.empty() && !fIsInCdata && kept_back() == 0;
}

/// What the parser keeps back is the start of one tag or text.
unsigned long Reader::kept_back() const {
    return fGiven - static_cast<unsigned long>(fDone);
}

/// Lets the shortcut take elements from the front of `text`, within the bounds of all elements.
int Reader::take_short(std::string_view& text) {
    if (!stands_between_tags() || fOpen.size() >= static_cast<std::size_t>(zXML::kMaxDepth)) {
        return 0;
    }
    const auto taken = fShortcut->Take(fRoot, *fOpen.back().record, text);
    if (taken.elements == 0) return 0;
    text.remove_prefix(taken.bytes);
    fOpen.back().holdsComplete = true;
    fElements += taken.elements;
    fVariables += taken.variables;
    const bool isWithin = fElements <= zXML::kMaxElements && fVariables <= zXML::kMaxVariables;
    fResult = isWithin ? 0 : zXML::kTooBig;
    return fResult;
}

int Reader::Read(zStream& stream) {
    const auto chunk = std::make_unique<char[]>(kChunkBytes);
    unsigned long held = 0;  // bytes at the front that feed left
    for (;;) {
        char* const fresh = chunk.get() + held;
        unsigned long got = 0;
        const int read = stream.Read(fresh, kChunkBytes - held, &got);
        if (read != 0) return read;
        note_front(fresh, got);
        fBytes += got;
        if (fBytes > zXML::kMaxDocumentBytes) return zXML::kTooBig;
        // The parser need not see the zero bytes that stand in the place of an end: whatever they
        // tear apart, a character too, is then just cut.
        const std::size_t zero = fIsWide ? got : std::string_view(fresh, got).find('\0');
        const unsigned long size = std::min<unsigned long>(got, zero);
        if (size < got) {
            const int rest = expect_zeros_to_the_end(stream, fresh + size, got - size);
            if (rest != 0) return rest;
        }
        const bool isLast = got == 0 || size < got;
        std::string_view text(chunk.get(), held + size);
        if (feed(text, isLast) != 0) return result_of_failure(stream, fresh, got);
        if (isLast) return 0;
        if (kept_back() > kMaxKeptBackBytes) return zXML::kTooBig;
        std::copy(text.begin(), text.end(), chunk.get());
        held = text.size();
    }
}

/// A mark at the front, or a zero byte beside the first character.
void Reader::note_front(const char* chunk, unsigned long size) {
    for (unsigned long i = 0; i < size && fBytes + i < 2; ++i) {
        const auto byte = static_cast<unsigned char>(chunk[i]);
        if (byte == 0 || byte >= 0xFE) fIsWide = true;
    }
}

/// Tells a document that just ends from one that is wrong.
int Reader::result_of_failure(zStream& stream, const char* chunk, unsigned long size) {
    if (fResult != 0) return fResult;
    switch (XML_GetErrorCode(fParser)) {
        case XML_ERROR_NO_ELEMENTS:
        case XML_ERROR_UNCLOSED_TOKEN:
        case XML_ERROR_PARTIAL_CHAR:
        case XML_ERROR_UNCLOSED_CDATA_SECTION:
            return close_early();
        case XML_ERROR_INVALID_TOKEN:
            return fIsWide ? close_early_before_zeros(stream, chunk, size) : zXML::kNotWellFormed;
        case XML_ERROR_NO_MEMORY:
            if (fMemory.HasRefused()) return zXML::kTooBig;
            throw std::bad_alloc();
        default:
            return zXML::kNotWellFormed;
    }
}

bool all_zero(const char* data, unsigned long size) {
    return std::all_of(data, data + size, [](char c) { return c == 0; });
}

/// A failure is an early end if nothing but zero bytes follows its place.
int Reader::close_early_before_zeros(zStream& stream, const char* chunk, unsigned long size) {
    const auto at = static_cast<unsigned long>(XML_GetCurrentByteIndex(fParser));
    const unsigned long chunkStart = fBytes - size;
    if (at < chunkStart || at >= fBytes) return zXML::kNotWellFormed;
    const int rest = expect_zeros_to_the_end(stream, chunk + (at - chunkStart), fBytes - at);
    return rest == 0 ? close_early() : rest;
}

/// 0 if `data`, the end of what was read, and the rest of the stream are nothing but zero bytes.
int Reader::expect_zeros_to_the_end(zStream& stream, const char* data, unsigned long size) const {
    if (!all_zero(data, size)) return zXML::kNotWellFormed;
    char rest[4096];
    unsigned long got = 0;
    for (unsigned long total = fBytes; total <= zXML::kMaxDocumentBytes; total += got) {
        const int read = stream.Read(rest, sizeof rest, &got);
        if (read != 0) return read;
        if (!all_zero(rest, got)) return zXML::kNotWellFormed;
        if (got == 0) return 0;
    }
    return zXML::kNotWellFormed;
}

/// Drops the open elements that hold nothing complete; the root stays.
int Reader::close_early() {
    if (fElements == 0) return zXML::kNoElement;
    while (fOpen.size() > 1) {
        const Open last = fOpen.back();
        fOpen.pop_back();
        if (last.holdsComplete) {
            fOpen.back().holdsComplete = true;
        } else {
            fOpen.back().record->RemoveChildPtr(last.record);
            delete last.record;
        }
    }
    return 0;
}

/// Memory as a stream, not copied.
class MemoryView final : public zStream {
public:
    MemoryView(const void* data, std::size_t size)
        : fData(static_cast<const char*>(data)), fLeft(size) {}

    int Read(void* data, unsigned long size, unsigned long* got) override {
        *got = std::min<unsigned long>(size, fLeft);
        zCopyMemory(fData, data, *got);
        fData += *got;
        fLeft -= *got;
        return 0;
    }
    int Write(const void* /*data*/, unsigned long /*size*/) override { return -1; }
    int Flush() override { return 0; }

private:
    const char* fData;
    std::size_t fLeft;
};

}  // namespace

static bool is_known_format(unsigned int format) {
    return (format & zXML::kAttributes) != 0 &&
           (format & ~(zXML::kAttributes | zXML::kNoDeclaration)) == 0;
}

int zXML::ParseStream(unsigned int format, zRecord* record, zStream* stream,
                      zXMLShortcut* shortcut) {
    if (record == nullptr || stream == nullptr || !is_known_format(format)) return -22;
    Reader reader(shortcut);
    const int result = reader.Read(*stream);
    if (result == 0) record->TakeFrom(reader.Root());
    return result;
}

int zXML::ParseMemory(unsigned int format, zRecord* record, const void* data, std::size_t size) {
    if (data == nullptr && size != 0) return -22;
    MemoryView view(data, size);
    return ParseStream(format, record, &view);
}

int zXML::ParseFile(unsigned int format, zRecord* record, const char* path,
                    zXMLShortcut* shortcut) {
    if (record == nullptr || path == nullptr || !is_known_format(format)) return -22;
    zFileStream file(path, Z_FILE_READ, false);
    const int opened = file.Open();
    return opened != 0 ? opened : ParseStream(format, record, &file, shortcut);
}
