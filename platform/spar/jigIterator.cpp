#include "spar/jigIterator.h"

#include "spar/jigManager.h"

jigIterator::jigIterator(jigManager& manager, const char* interfaceName)
    : fManager(manager), fInterface(interfaceName != nullptr ? interfaceName : "") {
    Init();
}

jigIterator::~jigIterator() = default;

void jigIterator::Init() {
    fIndex = fManager.find_from(0, fInterface);
}

bool jigIterator::Done() const {
    return fIndex >= fManager.count();
}

void jigIterator::Next() {
    if (!Done()) fIndex = fManager.find_from(fIndex + 1, fInterface);
}

int jigIterator::GetInterface(void** out) {
    return fManager.get_interface(fIndex, out);
}
