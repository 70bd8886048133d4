#pragma once

#include <string>

#include "tarn/export.h"
#include "tarn/foundation/tnOutputAccessor.h"

class jigManager;
class tnFormatsIterator;
class tnMovie;
class tnXIMovieFile;
class zRecord;
struct tnAppFunctions;

/// The kinds of movie that add-ons bring. Nothing is remembered between calls: each asks the
/// add-ons that bear "tnXIMovieFile", first loaded first, until one will.
///
/// LoadAddons comes first; from then on any thread may call.
class TARN_API tnFiles {
public:
    /// Remembers the manager, which must outlive the library's use; loads nothing itself.
    static void LoadAddons(jigManager& manager);

    /// Lets each add-on look at the file until one answers anything but -1254, which is the result.
    /// -1014 before LoadAddons; -1015 if there was nobody to ask; -1254 if it is nobody's kind.
    static int LoadFile(const char* path, tnMovie** movie, const zRecord& options,
                        tnAppFunctions& functions);

    /// The add-on of exactly that format name, which the caller releases: 0; -22 for a null `out`
    /// or an empty name; -1016 if there is none.
    static int GetMovieFileInterface(const std::string& name, tnXIMovieFile** out);
    /// False also for an unknown name.
    static bool IsOutputSupported(const std::string& name, const zRecord& output);

    /// Asks every add-on of that id that writes to that kind of output until one makes a movie: 0;
    /// -1014 before LoadAddons; -1017 if none did.
    static int CreateMovie(tnMovie** movie, unsigned int formatID, tn_output output);
    /// The two in one: -1018 for a name that is empty, GetFormatID's code, or CreateMovie's.
    static int CreateMovieWithName(tnMovie** movie, const std::string& name, tn_output output);
    /// 0; -1 for a null `id` or an empty name; -1020 and an id of 0 for a name that nobody bears.
    static int GetFormatID(const std::string& name, unsigned int* id);

    /// The first add-on that lists `interfaceName`: what its GetInterface gave; -31 if there is
    /// none.
    static int QueryInterface(const char* interfaceName, void** out);

    /// The caller ends it with Delete().
    static tnFormatsIterator* CreateFormatIterator();
};
