#pragma once

/// What a filter of an add-on is beside a tnFilter, so that an output which it keeps empty can tell
/// why: nothing looks at the answers to frames.
class AnsweringFilter {
public:
    virtual ~AnsweringFilter() = default;

    /// A negative code where the filter was created and can encode nothing, else 0.
    virtual int ConfigurationError() const = 0;
};
