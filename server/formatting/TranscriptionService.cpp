#include "formatting/TranscriptionService.h"

#include "formatting/TextFormatter.h"
#include "formatting/VocabularyCorrector.h"
#include "speech/AudioDecoder.h"

namespace vocle::server {

std::string TranscriptionService::transcribe(const TranscriptionJob& job) {
    const std::vector<int16_t> pcm = decodeToSpeechPcm(job.audio, maxAudioSeconds_);
    const std::string recognised =
        engine_.transcribe(pcm, {job.mode.language, job.mode.prompt, job.vocabWords});
    return finish(recognised, job);
}

std::string TranscriptionService::finish(const std::string& recognised, const TranscriptionJob& job) {
    const std::string corrected = applyVocabulary(recognised, parseVocabulary(job.vocabWords));
    const ModeTemplate* found = templates_.find(job.mode.modeTypeId, job.mode.type);
    // A custom mode without a known template still gets tidy text.
    const Layout layout = found ? found->layout : Layout::Clean;
    std::string formatted;
    if (layout == Layout::Raw || corrected.empty()) {
        formatted = corrected;
    } else {
        const std::string fallback = text_formatter::format(layout, corrected);
        formatted = fallback;
        const std::string prompt = !job.mode.prompt.empty() ? job.mode.prompt
                                   : found                  ? found->prompt
                                                            : std::string();
        if (chat_ && !prompt.empty()) {
            const auto answer = chat_->format(prompt, corrected);
            if (answer && looksLikeFormattedTranscript(*answer, corrected)) {
                formatted = *answer;
            } else {
                formatted = text_formatter::format(Layout::Clean, corrected);
            }
        }
    }
    return applyReplacements(formatted, job.replacements);
}

}  // namespace vocle::server
