#pragma once

/// Codes of the movie file writers, and of outputs that go on without a part of what they shall
/// write: these two pass when there is room, or when something comes. Their meanings are told at
/// the operations that give them.
enum : int {
    kWriterTimeout = -14,
    kWriterNoFile = -1006,
    kWriterNoVideoTrack = -1032,
    kWriterQuickSyncInSoftware = -1033,
    kWriterToolboxInSoftware = -1035,
    kWriterConverterInput = -1038,
    kWriterConverterOutput = -1039,
    kWriterConverterBegin = -1040,
    kWriterFormat = -1041,
    kWriterTrackRefused = -1042,
    kWriterVideoBegin = -1043,
    kWriterConversion = -1050,
    kWriterCopy = -1051,
    kWriterVideoSample = -1052,
    kWriterAudioConverter = -1054,
    kWriterNoAudioTrack = -1055,
    kWriterAudioBegin = -1056,
    kWriterAudioTrack = -1057,
    kWriterAudioConversion = -1058,
    kWriterAudioSample = -1059,
    kOutputLeavesOut = -1061,
    kOutputGetsNothing = -1062,
};
