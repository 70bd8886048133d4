#pragma once

#include <string>

#include "spar/zObservable.h"
#include "tarn/export.h"

class zRecord;

/// A place to send media to, as people see and set it in the host. A subclass describes it; this
/// class tells observers of changes, with the message "tnDestinationMsg".
class TARN_API tnDestination : public zObservable {
public:
    // A destination's own business, for the host; nothing here calls them.
    virtual int GetOutputs(zRecord& outputs) = 0;
    virtual int SetOutputs(const zRecord& outputs) = 0;
    virtual int GetTracks(zRecord& tracks) = 0;
    virtual int SetTracks(const zRecord& tracks) = 0;
    virtual int GetPresets(zRecord& presets) = 0;
    virtual int SetPreset(const char* name) = 0;
    virtual const char* DisplayName() const = 0;
    virtual unsigned int FormatID() const = 0;

    /// Empty unless a subclass knows one.
    virtual std::string GetDefaultEncoderName() const;

    virtual int Validate(zRecord& problems) = 0;
    virtual bool IsEnabled() const = 0;

    /// What observers hold is no longer valid.
    virtual void SendChangeNotification();
    /// What observers hold stays valid.
    virtual void SendNonInvalidatingChangeNotification();
    /// A change that the presets survive.
    virtual void SendKeepPresetsChangeNotification();
};
