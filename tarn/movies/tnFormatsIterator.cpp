#include "tarn/movies/tnFormatsIterator.h"

#include "spar/jigIterator.h"
#include "tarn/movies/tnXIMovieFile.h"

tnFormatsIterator::tnFormatsIterator(jigIterator* iterator) : fIterator(iterator) {}

tnFormatsIterator::~tnFormatsIterator() {
    delete fIterator;
}

void tnFormatsIterator::Delete(tnFormatsIterator* iterator) {
    delete iterator;
}

void tnFormatsIterator::Init() {
    fIterator->Init();
}

bool tnFormatsIterator::Done() {
    return fIterator->Done();
}

void tnFormatsIterator::Next() {
    fIterator->Next();
}

int tnFormatsIterator::Current(tn_format& format) {
    void* found = nullptr;
    const int result = fIterator->GetInterface(&found);
    if (result != 0 || !found) return result;
    auto* file = static_cast<tnXIMovieFile*>(found);
    format.id = file->FormatID();
    format.name = file->FormatName();
    format.flag = file->FormatFlag();
    return file->Release();
}
