#pragma once

#include <optional>
#include <string>

#include "foundation/Json.h"
#include "foundation/Uuid.h"

namespace vocle {

// A named dictation profile. Stored as JSON with exactly these field names.
struct Mode {
    Uuid id = Uuid::random();
    std::string name;
    std::optional<std::string> type = std::string("Custom");
    std::optional<std::string> modeTypeId;
    bool isDefault = false;
    std::string prompt;
    std::string language = "English";
    bool muteWhileRecording = false;
    bool recordSystemAudio = false;
    std::string activationWebsite;
    std::string activationApplication;

    static Mode fresh(std::string name);

    // Every key is required except "type" and "modeTypeId"; a missing one throws DecodingError.
    static Mode fromJson(const Json& json);
    // "type" and "modeTypeId" are left out when nil.
    Json toJson() const;

    friend bool operator==(const Mode&, const Mode&) = default;
};

}  // namespace vocle
