#include "recording/AudioMixer.h"

namespace vocle {

std::optional<Error> AudioMixer::mix(const std::filesystem::path&, const std::filesystem::path&,
                                     const std::filesystem::path&) {
    return Error{kErrorDomain, kRenderingError, "Rendering error"};
}

}  // namespace vocle
