#include "backend/StreamingTranscriber.h"

namespace vocle {

std::shared_ptr<LiveAudioStream> StreamingTranscriber::openStream(
    const Mode& mode, const std::string& vocabWords, const std::vector<Replacement>& replacements,
    std::function<void(std::string)> onPartial) {
    if (!enabled_) return nullptr;
    const uint64_t id = nextId_++;
    StreamingUploader::Options options{
        mode, vocabWords, replacements, std::move(onPartial),
        // Posted: the uploader is still on the stack when it settles.
        [this, id] { mainQueue_.post(owner_.guard([this, id] { streams_.erase(id); })); }};
    auto uploader = std::make_shared<StreamingUploader>(mainQueue_, backend_, fallback_, std::move(options));
    streams_.emplace(id, uploader);
    uploader->start();
    return uploader;
}

}  // namespace vocle
