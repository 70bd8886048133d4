"""What layers.py must find, and what it must let pass: an include a row."""
import sys

from layers import complaints

NOT_KNOWN = "not a header that this folder may know"
SYSTEM = "operating-system header"
CASES = [
    # upward and round
    ("platform/spar/zNew.cpp", '"orb/RObject.h"', NOT_KNOWN),
    ("platform/orb/CNew.cpp", '"tarn/foundation/tnTarn.h"', NOT_KNOWN),
    ("platform/orb/CNew.cpp", '"orb/container/BoxWriter.h"', NOT_KNOWN),
    ("platform/orb/CNew.cpp", '"orb/container/MovieFile.h"', None),
    ("platform/orb/CNew.cpp", '"orb/ffmpeg/X264.h"', NOT_KNOWN),
    ("platform/orb/container/New.cpp", '"orb/ffmpeg/X264.h"', NOT_KNOWN),
    ("platform/mach/machNew.cpp", '"orb/RObject.h"', NOT_KNOWN),
    # a parent's name hides nothing
    ("tarn/clocks/tnNew.cpp", '"../filters/tnFilterManager.h"', "goes round by its parent"),
    ("tarn/clocks/tnNew.cpp", '"../clocks/tnClock.h"', "goes round by its parent"),
    ("addons/mux/New.cpp", '"../moviefile/FileMovie.h"', NOT_KNOWN),
    ("addons/mux/New.cpp", '"../../tarn/audio/tnNothing.h"', "no header of the tree"),
    ("tools/tarn/live/New.cpp", '"../ClipVideo.h"', None),
    # rooms of tarn, each with its own platform folders
    ("tarn/clocks/tnNew.cpp", '"mach/kernelTime.h"', None),
    ("tarn/clocks/tnNew.cpp", '"orb/RObject.h"', NOT_KNOWN),
    ("tarn/replay/tnNew.cpp", '"orb/RObject.h"', NOT_KNOWN),
    ("tarn/iso/tnNew.cpp", '"display/displayLink.h"', NOT_KNOWN),
    ("tarn/sync/tnNew.cpp", '"tarn/audio/tnAudioConverter.h"', NOT_KNOWN),
    ("tarn/movies/tnNew.cpp", '"orb/RObject.h"', NOT_KNOWN),
    ("tarn/movies/tnNew.cpp", '"tarn/filters/tnFilterManager.h"', None),
    ("tarn/movies/tnNew.cpp", '"tarn/filters/OrbVideoBuffer.h"', NOT_KNOWN),
    ("tarn/filters/tnNew.cpp", '"tarn/writers/orbConversions.h"', None),
    ("tarn/filters/tnNew.cpp", '"tarn/writers/tnWriteORB2.h"', NOT_KNOWN),
    ("tarn/foundation/tnNew.cpp", '"tarn/filters/tnFilterManager.h"', NOT_KNOWN),
    ("tarn/foundation/tnTarn.cpp", '"tarn/filters/tnFilterManager.h"', None),
    ("tarn/foundation/tnTarn.cpp", '"tarn/audio/tnAudioConverter.h"', NOT_KNOWN),
    ("tarn/new/tnNew.cpp", '"spar/zRecord.h"', NOT_KNOWN),
    # what is installed, and what is not
    ("addons/mux/New.cpp", '"orb/CAssetWriter.h"', None),
    ("addons/mux/New.cpp", '"orb/MovieQueue.h"', NOT_KNOWN),
    ("addons/mux/New.cpp", '"addons/support/OutputMovie.h"', None),
    ("addons/support/New.cpp", '"addons/mux/MuxMovie.h"', NOT_KNOWN),
    ("examples/host/New.cpp", '"tarn/clocks/tnSystemClock.h"', None),
    ("examples/host/New.cpp", '"tarn/clocks/tnSystemClockInternals.h"', NOT_KNOWN),
    ("tools/tarn/New.cpp", '"spar/zXMLText.h"', NOT_KNOWN),
    ("tools/tarn/New.cpp", '"tarn/foundation/wholeNumber.h"', NOT_KNOWN),
    # foreign libraries at home
    ("platform/orb/ffmpeg/New.cpp", "<libavcodec/avcodec.h>", None),
    ("platform/orb/CNew.cpp", "<libavcodec/avcodec.h>", "platform/orb/ffmpeg/ alone"),
    ("addons/mux/New.cpp", "<libavformat/avformat.h>", "platform/orb/ffmpeg/ alone"),
    ("examples/host/New.cpp", "<libswscale/swscale.h>", "platform/orb/ffmpeg/ alone"),
    ("tools/tarn/New.cpp", "<libavformat/avformat.h>", None),
    ("tools/tarn/New.cpp", "<x264.h>", "platform/orb/ffmpeg/ alone"),
    ("tarn/replay/tnNew.cpp", "<expat.h>", "platform/spar/ alone"),
    ("tarn/clocks/tnNew.cpp", "<xcb/xcb.h>", "platform/display/ alone"),
    # the operating system
    ("tarn/iso/tnNew.cpp", "<sys/statvfs.h>", SYSTEM),
    ("tarn/clocks/tnNew.cpp", "<signal.h>", SYSTEM),
    ("tarn/movies/tnNew.cpp", "<netdb.h>", SYSTEM),
    ("addons/mux/New.cpp", "<arpa/inet.h>", SYSTEM),
    ("tools/tarn/New.cpp", "<unistd.h>", SYSTEM),
    ("tools/tarn/ProgressLine.cpp", "<unistd.h>", None),
    ("examples/host/New.cpp", "<pthread.h>", SYSTEM),
    ("platform/spar/zNew.cpp", "<unistd.h>", None),
    ("tarn/iso/tnNew.cpp", "<cstdio>", None),
    ("tarn/iso/tnNew.cpp", "<fmt/format.h>", None),
    # tests
    ("tarn/iso/tnNew.cpp", '"tests/support/TestFolder.h"', "test header"),
    ("platform/orb/CNew.cpp", '"orb/testComponents.h"', "test header"),
    ("platform/orb/ffmpeg/New.cpp", '"orb/ffmpeg/EncoderTestKit.h"', "test header"),
    ("tarn/iso/tnNew_test.cpp", '"tests/support/TestFolder.h"', None),
    ("tarn/iso/tnNew_test.cpp", "<unistd.h>", None),
]


def main() -> int:
    wrong = 0
    for path, include, expected in CASES:
        found = complaints(path, f"#pragma once\n  #  include {include}\n")
        fine = found == [] if expected is None else len(found) == 1 and expected in found[0]
        if not fine:
            wrong += 1
            print(f"layers_test: {path} with {include}: wanted {expected}, got {found}", file=sys.stderr)
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
