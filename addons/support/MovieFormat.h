#pragma once

#include <atomic>

#include "tarn/movies/tnXIMovieFile.h"

/// What the formats of this folder share: names, counting, and that they write and do not read.
class MovieFormat : public tnXIMovieFile {
public:
    MovieFormat(const MovieFormat&) = delete;
    MovieFormat& operator=(const MovieFormat&) = delete;

    int QueryInterface(const char* name, void** out) override;
    int AddRef() override;
    int Release() override;
    void DeleteInterface() override;
    int GetVersion() override;
    /// -1254: these formats do not read.
    int LoadFile(const char* path, tnMovie** movie, const zRecord& options,
                 tnAppFunctions& functions) override;
    /// 0; -22 for a null `movie`.
    int CreateMovie(tnMovie** movie) override;
    bool FormatFlag() override;
    /// Whether the output's type is written and it says where to.
    bool IsOutputSupported(const zRecord& output) override;
    const char* FileExtension() override { return fExtension; }
    int GetCapabilities(zRecord& capabilities) override;
    int ConfigureInterface(const zRecord& settings) override;
    unsigned int FormatID() override { return fID; }
    const char* FormatName() override { return fName; }
    bool SupportsOutput(tn_output output) override;

protected:
    /// Texts live as long as the program. `streams` says whether outputs of the streaming type are
    /// written as well as files.
    MovieFormat(unsigned int id, const char* name, const char* extension, bool streams);
    virtual ~MovieFormat();

    /// An empty movie, with a reference for the caller.
    virtual tnMovie* make_movie() = 0;

private:
    const unsigned int fID;
    const char* const fName;
    const char* const fExtension;
    const bool fStreams;
    std::atomic<int> fRefCount{1};
};
