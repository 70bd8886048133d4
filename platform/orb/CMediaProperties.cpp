#include "orb/CMediaProperties.h"

namespace Quillon::Orb {

CMediaProperties::CMediaProperties(unsigned int type, const CMediaProperties* source)
    : CObject(type, nullptr), CPropertyTable(Openness::Open) {
    if (!source) return;
    fFormat = source->fFormat;
    fTimescale = source->fTimescale;
    fDuration = source->fDuration;
    fExtensions = source->fExtensions;
    SetProperties(source);
}

std::string CMediaProperties::GetOwnerName() const {
    return "media properties";
}

unsigned int CMediaProperties::GetFormat() const {
    return fFormat;
}

Result CMediaProperties::SetFormat(unsigned int format) {
    fFormat = format;
    return 0;
}

long long CMediaProperties::GetTimescale() const {
    return fTimescale;
}

Result CMediaProperties::SetTimescale(long long timescale) {
    if (timescale < 0) return ResultInvalidArgument("a timescale of %lld", timescale);
    fTimescale = timescale;
    return 0;
}

long long CMediaProperties::GetDuration() const {
    return fDuration;
}

Result CMediaProperties::SetDuration(long long duration) {
    fDuration = duration < 0 ? 0 : duration;
    return 0;
}

CDecoderSpecificProperties* CMediaProperties::GetExtension(unsigned int key) const {
    for (const auto& [name, extension] : fExtensions) {
        if (name == key) return RObject<CDecoderSpecificProperties>(extension).Detach();
    }
    return nullptr;
}

Result CMediaProperties::SetExtension(unsigned int key, CDecoderSpecificProperties* extension) {
    std::erase_if(fExtensions, [key](const auto& entry) { return entry.first == key; });
    if (extension) {
        fExtensions.emplace_back(key, RObject<CDecoderSpecificProperties>::Share(extension));
    }
    return 0;
}

}  // namespace Quillon::Orb
