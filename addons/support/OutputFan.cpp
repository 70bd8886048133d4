#include "addons/support/OutputFan.h"

#include <algorithm>
#include <utility>

void OutputFan::Add(std::shared_ptr<MovieOutput> output) {
    const zMutexLock lock(fLock);
    auto changed = std::make_shared<Outputs>(*fOutputs);
    changed->push_back(std::move(output));
    fOutputs = std::move(changed);
}

void OutputFan::Remove(const std::shared_ptr<MovieOutput>& output) {
    const zMutexLock lock(fLock);
    auto changed = std::make_shared<Outputs>(*fOutputs);
    std::erase(*changed, output);
    fOutputs = std::move(changed);
}

std::shared_ptr<const OutputFan::Outputs> OutputFan::outputs() const {
    const zMutexLock lock(fLock);
    return fOutputs;
}

template <class Wanted>
std::shared_ptr<MovieOutput> OutputFan::first_that(const Wanted& wanted) const {
    const std::shared_ptr<const Outputs> running = outputs();
    const auto found = std::find_if(running->begin(), running->end(), wanted);
    return found != running->end() ? *found : nullptr;
}

std::shared_ptr<MovieOutput> OutputFan::FindFailed() const {
    return first_that([](const auto& output) { return output->Failure() != 0; });
}

std::shared_ptr<MovieOutput> OutputFan::FindInTrouble(bool ofPictures) const {
    return first_that([&](const auto& output) { return output->Trouble(ofPictures) != 0; });
}

void OutputFan::WriteVideo(std::shared_ptr<tnFilter> filter,
                           std::shared_ptr<tnVideoCompressor::EncodedBuffer> buffer) {
    if (!filter) return;
    const std::shared_ptr<const Outputs> running = outputs();
    for (const auto& output : *running) output->WriteVideo(filter, buffer);
}

void OutputFan::WriteAudio(std::shared_ptr<tnFilter> filter,
                           std::shared_ptr<tnAudioCompressor::EncodedBuffer> buffer) {
    if (!filter) return;
    const std::shared_ptr<const Outputs> running = outputs();
    for (const auto& output : *running) output->WriteAudio(filter, buffer);
}
