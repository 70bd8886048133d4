#pragma once

#include <string>
#include <utility>
#include <vector>

#include "orb/CDecoderSpecificProperties.h"
#include "orb/CObject.h"
#include "orb/CPropertyTable.h"
#include "orb/RObject.h"
#include "orb/Result.h"

namespace Quillon::Orb {

/// What video and sound descriptions share: a format, a time scale, a length, and extensions that
/// a codec hangs on them. One thread at a time changes an object; its property table is open.
class ORB_API CMediaProperties : public CObject, public CPropertyTable {
public:
    static constexpr unsigned int kType = 'mprp';

    bool IsType(unsigned int type) const override { return type == kType || CObject::IsType(type); }

    /// Four-character code; 0 until it is set.
    virtual unsigned int GetFormat() const;
    virtual Result SetFormat(unsigned int format);
    /// Ticks per second; 0 until it is set.
    virtual long long GetTimescale() const;
    /// ResultInvalidArgument for a negative number.
    virtual Result SetTimescale(long long timescale);
    /// Expected length of the track in ticks; 0 is unknown.
    virtual long long GetDuration() const;
    /// A negative length counts as unknown.
    virtual Result SetDuration(long long duration);

    /// What a codec adds, by key: 'h264' a CMpeg4AvcProperties, 'mspe' a
    /// CDecoderSpecificProperties. Null when there is none.
    CDecoderSpecificProperties* GetExtension(unsigned int key) const;
    /// Shares the extension; null takes it away.
    Result SetExtension(unsigned int key, CDecoderSpecificProperties* extension);

protected:
    /// Copies all but the count of references; null makes an empty object.
    CMediaProperties(unsigned int type, const CMediaProperties* source);
    std::string GetOwnerName() const override;

private:
    unsigned int fFormat = 0;
    long long fTimescale = 0;
    long long fDuration = 0;
    std::vector<std::pair<unsigned int, RObject<CDecoderSpecificProperties>>> fExtensions;
};

}  // namespace Quillon::Orb
