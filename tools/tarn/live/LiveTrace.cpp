#include "LiveTrace.h"

#include <algorithm>
#include <deque>
#include <iterator>

#include "spar/zMutex.h"
#include "spar/zTraceManager.h"

namespace {

constexpr std::size_t kRemembered = 256;

class Sink final : public zTraceManager {
public:
    void TraceMessage(int level, const std::string& text) override {
        const zMutexLock lock(fMutex);
        fMessages.push_back(text.substr(0, text.find_last_not_of('\n') + 1));
        if (fMessages.size() > kRemembered) fMessages.pop_front();
        if (fPrint) zTraceManager::StandardError()->TraceMessage(level, text);
    }

    void SetPrint(bool print) {
        const zMutexLock lock(fMutex);
        fPrint = print;
    }

    std::vector<std::string> About(const std::string& subject) {
        const zMutexLock lock(fMutex);
        std::vector<std::string> found;
        std::copy_if(fMessages.begin(), fMessages.end(), std::back_inserter(found),
                     [&](const std::string& text) { return text.find(subject) != text.npos; });
        return found;
    }

    void Forget(const std::string& subject) {
        const zMutexLock lock(fMutex);
        std::erase_if(fMessages, [&](const std::string& text) {
            return text.find(subject) != std::string::npos;
        });
    }

private:
    zMutex fMutex;
    std::deque<std::string> fMessages SPAR_GUARDED_BY(fMutex);
    bool fPrint SPAR_GUARDED_BY(fMutex) = false;
};

// For as long as the process: threads may be inside when it is replaced.
Sink& sink() {
    static Sink& made = *new Sink();
    return made;
}

}  // namespace

void LiveTrace::Install(bool print) {
    sink().SetPrint(print);
    zTraceManager::SetDefault(&sink());
}

void LiveTrace::Remove() {
    zTraceManager::SetDefault(zTraceManager::StandardError());
}

std::vector<std::string> LiveTrace::About(const std::string& subject) {
    return subject.empty() ? std::vector<std::string>() : sink().About(subject);
}

void LiveTrace::Forget(const std::string& subject) {
    if (!subject.empty()) sink().Forget(subject);
}
