#include "orb/CContainerWriter.h"

#include <climits>

#include "orb/ContainerProperty.h"
#include "orb/MovieQueue.h"

namespace Quillon::Orb {

namespace {

constexpr int kDefaultMoovRate = 1;
constexpr int kLongestExtension = 32;

bool can_end_a_name(const CString& extension) {
    const int length = extension.GetLength();
    if (length < 1 || length > kLongestExtension) return false;
    for (int i = 0; i < length; ++i) {
        const unsigned char c = static_cast<unsigned char>(extension.GetText()[i]);
        if (c < ' ' || c == 127 || c == '/') return false;
    }
    return true;
}

}  // namespace

CContainerWriter::CContainerWriter(unsigned int containerType, const char* path)
    : CContainer(kType),
      fContainerType(containerType),
      fPath(path ? path : ""),
      fQueue(std::make_unique<MovieQueue>("'" + fPath + "'")) {
    if (containerType != 'mov ' && containerType != 'mp4 ') return;
    namespace Names = ContainerProperty::Mpeg4ContainerWriter;
    DeclareBool(Names::FastStart, true);
    DeclareBool(Names::TrimAudio, true);
    DeclareInt(Names::MoovRate, kDefaultMoovRate, 1, INT_MAX);
}

CContainerWriter::~CContainerWriter() = default;

Result CContainerWriter::SetExtension(CString* extension) {
    if (!extension) return ResultNullPointer("no extension");
    if (!can_end_a_name(*extension)) {
        return ResultInvalidArgument("no file name ends in \"%s\"", extension->GetText());
    }
    fExtension = RObject<CString>::Share(extension);
    return 0;
}

CString* CContainerWriter::GetExtension() const {
    return RObject<CString>(fExtension).Detach();
}

std::string CContainerWriter::GetOwnerName() const {
    return fQueue->GetName();
}

MovieFileOptions CContainerWriter::options() const {
    namespace Names = ContainerProperty::Mpeg4ContainerWriter;
    MovieFileOptions chosen;
    chosen.containerType = fContainerType;
    if (fContainerType != 'mov ' && fContainerType != 'mp4 ') return chosen;
    chosen.fastStart = GetFlag(Names::FastStart);
    chosen.trimAudio = GetFlag(Names::TrimAudio);
    chosen.checkpointSeconds = GetInt(Names::MoovRate);
    return chosen;
}

}  // namespace Quillon::Orb
