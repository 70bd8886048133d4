#include "exceptionAdvice.h"

#include <new>
#include <system_error>

const char* ExceptionAdvice(const std::exception& error) {
    const auto* system = dynamic_cast<const std::system_error*>(&error);
    const bool isShortage =
        dynamic_cast<const std::bad_alloc*>(&error) != nullptr ||
        (system != nullptr && system->code() == std::errc::resource_unavailable_try_again);
    return isShortage ? "the machine has no memory or no thread left for it; end other programs "
                        "and try again"
                      : "see to that and try again";
}
