#pragma once

#include <string>
#include <vector>

class tnISOValidator;
class zRecord;
struct IsoSource;

/// One thing that is wrong with an output.
struct IsoProblem {
    std::string flag;  ///< for machines, such as "low_disk_space"
    std::string text;  ///< for people: what is wrong and what to change; one line, no end
};

/// Puts the flags of the validator into words, in the order in which HasProblems asks them.
/// `settings` is what it has checked.
std::vector<IsoProblem> DescribeIsoProblems(const tnISOValidator& validator,
                                            const zRecord& settings,
                                            const std::vector<IsoSource>& sources);
