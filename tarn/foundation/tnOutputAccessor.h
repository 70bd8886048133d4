#pragma once

#include <string>

#include "tarn/export.h"

class zRecord;
class zString;

/// The kind of an output. Records without the key read as 0; add-ons define further values.
enum tn_output : int {
    TN_OUTPUT_DEFAULT = 1,
    TN_OUTPUT_STREAMING = 2,  // has a streaming transport
};

/// The transport of a streaming output. Values beside these three are not announced by RTSP.
enum tn_transport : int {
    TN_TRANSPORT_ANNOUNCED_1 = 1,
    TN_TRANSPORT_ANNOUNCED_2 = 2,
    TN_TRANSPORT_ANNOUNCED_6 = 6,
};

/// A typed view of the record that says what one output is to be: a file, a stream to a server, a
/// port where viewers fetch it.
///
/// Holds a pointer to the output's record and owns nothing; add-ons and movies read outputs only
/// through it, so its defaults are what a missing key means everywhere. Without a record the
/// getters answer a default of their own, which in a few places differs from that of a missing key,
/// and the setters do nothing. Exceptions, which must have a record: the multicast address getters
/// and SetOutputUniqueID. A stack value without a lock: the caller guards the record.
///
/// A `const char*` that a getter gives belongs to the record and lives until that key changes.
class TARN_API tnOutputAccessor {
public:
    tnOutputAccessor() = default;
    tnOutputAccessor(zRecord& record);
    tnOutputAccessor(const zRecord& record);
    tnOutputAccessor(const tnOutputAccessor&) = default;

    /// Copies what `source` holds into the record held here. Assignment never repoints, see `set`.
    tnOutputAccessor& operator=(const zRecord& source);
    tnOutputAccessor& operator=(const tnOutputAccessor& source);

    /// Repoints the accessor.
    void set(zRecord& record);
    zRecord* Record() const { return fRecord; }
    void Print();

    /// Enters the keys of output records into the process-wide table of keys.
    static void RegisterVariableNames();

    static int DefaultVideoDataPort() { return 5434; }
    static int DefaultAudioDataPort() { return 5432; }
    static int DefaultMulticastTTL() { return 15; }

    /// Points `out` at the first output of that type: 0; or -1023 and `out` stays as it was. With
    /// `create` a missing one is made as the last child of `outputs`.
    static int FindOutputForType(zRecord& outputs, tnOutputAccessor& out, tn_output type,
                                 bool create);
    static bool HasOutputWithGroupName(zRecord& outputs, const char* name);

    /// The host of the URL, which may lack its scheme. False if there is none; `host` then holds
    /// what the parser left there.
    bool GetHostname(zString& host) const;
    /// The port of the URL; 554 if it names none, or 21.
    int GetRTSPPort() const;
    bool IsRTSPAnnounceTransport() const;
    bool IsOutputBranding(const char* name) const;

    tn_output OutputType() const;
    void SetOutputType(tn_output type);
    bool OutputEnabled() const;
    /// Also names the record's element "output", the name that it bears in files from then on.
    void SetOutputEnabled(bool enabled);
    std::string PresetName() const;
    void SetPresetName(const std::string& name);
    std::string URL() const;
    void SetURL(const std::string& url);
    std::string OutputBranding() const;
    void SetOutputBranding(const std::string& branding);
    std::string OutputDisplayGroupName() const;
    void SetOutputDisplayGroupName(const std::string& name);
    std::string OutputDisplayName() const;
    void SetOutputDisplayName(const std::string& name);
    int StreamingAction() const;
    void SetStreamingAction(int action);
    bool AutoIncrementFileName() const;
    void SetAutoIncrementFileName(bool on);
    bool TimestampFileName() const;
    void SetTimestampFileName(bool on);
    tn_transport StreamingTransport() const;
    void SetStreamingTransport(tn_transport transport);
    bool HintFile() const;
    void SetHintFile(bool on);
    const char* Username() const;
    void SetUsername(const char* name);
    const char* Password() const;
    void SetPassword(const char* password);
    std::string LocationOnServer() const;
    void SetLocationOnServer(const std::string& location);
    /// LocationOnServer() where the record has none of its own.
    std::string LocationOnServerWithBitrate() const;
    void SetLocationOnServerWithBitrate(const std::string& location);
    int MilliTimeout() const;
    void SetMilliTimeout(int milliseconds);
    int VideoDataPort() const;
    void SetVideoDataPort(int port);
    int AudioDataPort() const;
    void SetAudioDataPort(int port);
    const char* MulticastVideoAddress() const;
    void SetMulticastVideoAddress(const char* address);
    const char* MulticastAudioAddress() const;
    void SetMulticastAudioAddress(const char* address);
    int MulticastTTL() const;
    void SetMulticastTTL(int hops);
    int GetWindowsMediaPullPort() const;
    void SetWindowsMediaPullPort(int port);
    bool IndexASFFile() const;
    void SetIndexASFFile(bool on);
    /// False without a record, although true is what a record without the key says: hosts rely on
    /// both.
    bool GetAutoRemovePushConnection() const;
    void SetAutoRemovePushConnection(bool on);
    int GetMaxWMPullConnections() const;
    void SetMaxWMPullConnections(int count);
    int OutputUniqueID() const;
    void SetOutputUniqueID(int id);
    const char* OutputGUID() const;
    void SetOutputGUID(const char* guid);
    const char* OutputSDKDescription() const;
    void SetOutputSDKDescription(const char* description);
    int FlashStreamingDelay() const;
    void SetFlashStreamingDelay(int delay);
    unsigned int AudioOutputTrackMask() const;
    void SetAudioOutputTrackMask(unsigned int mask);
    bool IsRestreamingEnabled() const;
    void SetRestreamingEnabled(bool on);

private:
    bool bool_at(unsigned long long id, bool ifMissing, bool ifNull) const;
    int int_at(unsigned long long id, int ifMissing, int ifNull) const;
    int int_at(const char* key, int ifMissing, int ifNull) const;
    std::string string_at(unsigned long long id) const;
    const char* text_at(unsigned long long id) const;
    const char* text_at(const char* key) const;
    void set_bool(unsigned long long id, bool value);
    void set_int(unsigned long long id, int value);
    void set_int(const char* key, int value);
    void set_string(unsigned long long id, const std::string& text);
    void set_text(unsigned long long id, const char* text);
    void set_text(const char* key, const char* text);

    zRecord* fRecord = nullptr;
};
