#pragma once

#include "spar/xIUnknown.h"
#include "tarn/foundation/tnOutputAccessor.h"

class tnMovie;
class zRecord;

/// What the host lets add-ons call; the library only hands it on.
struct tnAppFunctions;

/// What an output add-on offers under the name "tnXIMovieFile": one kind of movie.
class tnXIMovieFile : public xIUnknown {
public:
    /// Kept for add-ons and their makers; the library calls neither.
    virtual void DeleteInterface() = 0;
    virtual int GetVersion() = 0;

    /// Makes a movie of a file that exists, which the caller releases: 0; -1254 for a file of
    /// another kind, so that the next add-on is asked; any other code ends the search.
    virtual int LoadFile(const char* path, tnMovie** movie, const zRecord& options,
                         tnAppFunctions& functions) = 0;
    /// Makes an empty movie, which the caller releases: 0 on success.
    virtual int CreateMovie(tnMovie** movie) = 0;
    virtual bool FormatFlag() = 0;
    /// Whether this kind of movie can serve this output's settings.
    virtual bool IsOutputSupported(const zRecord& output) = 0;

    /// For hosts that know the add-on; the library calls none of the three.
    virtual const char* FileExtension() = 0;
    virtual int GetCapabilities(zRecord& capabilities) = 0;
    virtual int ConfigureInterface(const zRecord& settings) = 0;

    /// Not 0.
    virtual unsigned int FormatID() = 0;
    /// Owned by the add-on.
    virtual const char* FormatName() = 0;
    /// Whether this kind of movie writes to that kind of output.
    virtual bool SupportsOutput(tn_output output) = 0;

protected:
    ~tnXIMovieFile() = default;
};
