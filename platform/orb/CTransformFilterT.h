#pragma once

#include <utility>

#include "orb/CAudioFilter.h"
#include "orb/CVideoFilter.h"
#include "orb/CodeBookProperty.h"

namespace Quillon::Orb {

/// A filter with one way in and one way out. F is CVideoFilter or CAudioFilter.
template <class F>
class ORB_API CTransformFilterT : public F {
public:
    using Properties = typename F::Properties;

    Properties* GetInputProperties(int) override {
        return RObject<Properties>(fInputProperties).Detach();
    }
    /// What UpdateOutputProperties said; before that a copy of the input in the output format.
    Properties* GetOutputProperties(int) override {
        if (fOutputProperties) return RObject<Properties>(fOutputProperties).Detach();
        if (!fInputProperties) return nullptr;
        RObject<Properties> output(new Properties(fInputProperties.Get()));
        unsigned int format = GetOutputFormat();
        if (output && format) output->SetFormat(format);
        return output.Detach();
    }
    /// Drops what was held and keeps a private copy. ResultOutOfMemory changes nothing.
    Result SetInputProperties(const Properties* properties) override {
        RObject<Properties> copy(new Properties(properties));
        if (!copy) return ResultOutOfMemory();
        fInputProperties = std::move(copy);
        fOutputProperties.Clear();
        return 0;
    }
    /// Sets CodeBookProperty::MediaFilter::OutputFormat; any success is 0.
    Result SetOutputFormat(unsigned int format) {
        Result result = this->SetFourProperty(CodeBookProperty::MediaFilter::OutputFormat, format);
        if (result.Failed()) return result;
        return 0;
    }

protected:
    explicit CTransformFilterT(unsigned int type) : F(type) {}

    /// Null before SetInputProperties has given 0 once, never null after.
    const Properties* Input() const noexcept { return fInputProperties.Get(); }
    unsigned int GetOutputFormat() const {
        return this->GetFour(CodeBookProperty::MediaFilter::OutputFormat);
    }
    /// For Begin: what comes out from here on. Takes over the reference; null forgets it.
    void UpdateOutputProperties(Properties* properties) { fOutputProperties = properties; }

private:
    RObject<Properties> fInputProperties;
    RObject<Properties> fOutputProperties;
};

}  // namespace Quillon::Orb
