#include "tarn/replay/DeleteReplayFilesThread.h"

#include "spar/zFileStream.h"

DeleteReplayFilesThread::DeleteReplayFilesThread(zList<zString>* paths) : fPaths(paths) {}

DeleteReplayFilesThread::~DeleteReplayFilesThread() = default;

int DeleteReplayFilesThread::Main(int /*argumentCount*/, const char** /*arguments*/) {
    for (const zString& path : *fPaths) zFileStream::RemoveFile(path);
    delete fPaths;
    delete this;
    return 0;
}
