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

/// The registry of movie kinds. It holds no table: each call walks the add-ons that offer
/// "tnXIMovieFile" afresh, in the manager's order, and the first that accepts wins.
///
/// LoadAddons runs before any other call; then any thread may call.
class TARN_API tnFiles {
public:
    /// Remembers the manager, which must outlive the library's use; loads nothing itself.
    static void LoadAddons(jigManager& manager);

    /// Lets each add-on look at the file until one answers anything but -1254, which is the result.
    /// -1014 before LoadAddons; -1015 if nobody could be asked; -1254 if all refused.
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
    /// -1018 for an empty name; the code of GetFormatID; else as CreateMovie.
    static int CreateMovieWithName(tnMovie** movie, const std::string& name, tn_output output);
    /// 0; -1 for a null `id` or an empty name; -1020 and an id of 0 if no add-on has that name.
    static int GetFormatID(const std::string& name, unsigned int* id);

    /// The first add-on that lists `interfaceName`: what its GetInterface gave; -31 if there is
    /// none.
    static int QueryInterface(const char* interfaceName, void** out);

    /// The caller ends it with Delete().
    static tnFormatsIterator* CreateFormatIterator();
};
