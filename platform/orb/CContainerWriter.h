#pragma once

#include <memory>
#include <string>

#include "orb/CContainer.h"
#include "orb/CPropertyTable.h"
#include "orb/CString.h"
#include "orb/RObject.h"
#include "orb/Result.h"

namespace Quillon::Orb {

struct MovieFileOptions;
class MovieQueue;

/// The file that an asset writer fills: what is asked of it before it begins, and the queue in
/// front of it. CAssetWriter::Create makes it.
class ORB_API CContainerWriter : public CContainer, public CPropertyTable {
public:
    static constexpr unsigned int kType = 'cwri';

    CContainerWriter(unsigned int containerType, const char* path);
    ~CContainerWriter() override;

    bool IsType(unsigned int type) const override {
        return type == kType || CContainer::IsType(type);
    }

    /// The extension of the file's name, without the dot. ResultNullPointer for null,
    /// ResultInvalidArgument for one that no file name can end in.
    virtual Result SetExtension(CString* extension);
    /// Null until it was set.
    CString* GetExtension() const;

    unsigned int GetContainerType() const noexcept { return fContainerType; }
    const char* GetPath() const noexcept { return fPath.c_str(); }

    /// The road from the tracks to the file; it lives as long as this object.
    MovieQueue& Queue() noexcept { return *fQueue; }

protected:
    std::string GetOwnerName() const override;

private:
    friend class CAssetWriter;

    MovieFileOptions options() const;

    const unsigned int fContainerType;
    const std::string fPath;
    RObject<CString> fExtension;
    std::unique_ptr<MovieQueue> fQueue;
};

}  // namespace Quillon::Orb
