#include "CliAlerts.h"

#include <ostream>

namespace vocle::cli {

void CliAlerts::show(const AlertRequest& request, std::function<void(int response)> onResponse) {
    err_ << request.title;
    if (!request.text.empty()) err_ << ": " << request.text;
    err_ << std::endl;
    mainQueue_.post([onResponse = std::move(onResponse)] {
        if (onResponse) onResponse(0);
    });
}

}  // namespace vocle::cli
