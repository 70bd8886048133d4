#include "tarn/foundation/tnOutputAnnotations.h"

#include "spar/zRecord.h"
#include "spar/zStringID.h"

tnOutputAnnotations::tnOutputAnnotations(zRecord& record) : fRecord(&record) {}

tnOutputAnnotations::tnOutputAnnotations(const zRecord& record)
    : fRecord(const_cast<zRecord*>(&record)) {}

tnOutputAnnotations& tnOutputAnnotations::operator=(const zRecord& source) {
    if (fRecord != nullptr && fRecord != &source) {
        fRecord->Copy(source, true, true, {});
    }
    return *this;
}

tnOutputAnnotations& tnOutputAnnotations::operator=(const tnOutputAnnotations& source) {
    return source.fRecord != nullptr ? *this = *source.fRecord : *this;
}

void tnOutputAnnotations::set(zRecord& record) {
    fRecord = &record;
}

void tnOutputAnnotations::Print() {
    if (fRecord != nullptr) {
        fRecord->Print(0, 0);
    }
}

void tnOutputAnnotations::RegisterVariableNames() {
    zStringID::Default().Add('mMTi', "output_title", false);
    zStringID::Default().Add('mMIn', "output_info", false);
    zStringID::Default().Add('mMCo', "output_copyright", false);
    zStringID::Default().Add('mMAu', "output_author", false);
}

const char* tnOutputAnnotations::Title() const {
    return text_at('mMTi');
}

void tnOutputAnnotations::SetTitle(const char* text) {
    set_text('mMTi', text);
}

const char* tnOutputAnnotations::Author() const {
    return text_at('mMAu');
}

void tnOutputAnnotations::SetAuthor(const char* text) {
    set_text('mMAu', text);
}

const char* tnOutputAnnotations::Info() const {
    return text_at('mMIn');
}

void tnOutputAnnotations::SetInfo(const char* text) {
    set_text('mMIn', text);
}

const char* tnOutputAnnotations::Copyright() const {
    return text_at('mMCo');
}

void tnOutputAnnotations::SetCopyright(const char* text) {
    set_text('mMCo', text);
}

const char* tnOutputAnnotations::text_at(unsigned long long id) const {
    return fRecord != nullptr ? fRecord->AsCString(id, nullptr, nullptr) : nullptr;
}

void tnOutputAnnotations::set_text(unsigned long long id, const char* text) {
    if (fRecord != nullptr) {
        fRecord->SetCString(id, text, 0);
    }
}
