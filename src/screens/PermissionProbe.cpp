#include "screens/PermissionProbe.h"

namespace vocle {

bool SystemPermissionProbe::microphoneAuthorized() {
    if (capture_.authorizationStatus() != MicrophoneAuthorization::authorized) return false;
    auto device = capture_.defaultDevice();
    if (!device) return false;
    auto session = capture_.makeSession();
    if (!session) return false;
    const bool opened = !session->createInput(*device).has_value();
    session->removeAll();
    return opened;
}

}  // namespace vocle
