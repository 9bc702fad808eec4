// Answers a dialog the way a screen-reader user does: through the accessibility tree of the
// application that shows it. Usage: vocle-test-answer-dialog APPLICATION_NAME BUTTON [--check-all]
// [--timeout SECONDS]. Waits for a showing push button named BUTTON (mnemonic underscores ignored) in a
// window of APPLICATION_NAME; with --check-all it first ticks every unticked check box in that window (a
// grant dialog whose confirm button stays insensitive until one is ticked). Exit status 0 once the button
// was clicked, 1 when none showed up in time, 2 on bad usage. One process per answer: libatspi cannot
// reconnect to another session's bus once it has been connected.
#include <atspi/atspi.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

std::string take(gchar* s) {
    std::string out = s ? s : "";
    g_free(s);
    return out;
}

void clear(GError*& error) {
    if (error) g_error_free(error);
    error = nullptr;
}

bool hasState(AtspiAccessible* node, AtspiStateType state) {
    AtspiStateSet* states = atspi_accessible_get_state_set(node);
    const bool has = states && atspi_state_set_contains(states, state);
    if (states) g_object_unref(states);
    return has;
}

// GTK 4 names a button by its mnemonic label and its plain text ("_Share Share").
bool namedAs(const std::string& name, const std::string& wanted) {
    std::string plain;
    for (const char c : name)
        if (c != '_') plain += c;
    std::istringstream words(plain);
    std::string word;
    while (words >> word)
        if (word == wanted) return true;
    return plain == wanted;
}

constexpr int kMaxDepth = 40;

void collect(AtspiAccessible* node, int depth, const char* role, std::vector<AtspiAccessible*>& out) {
    if (depth > kMaxDepth) return;
    GError* error = nullptr;
    if (take(atspi_accessible_get_role_name(node, &error)) == role) out.push_back(g_object_ref(node));
    clear(error);
    const int count = atspi_accessible_get_child_count(node, &error);
    clear(error);
    for (int i = 0; i < count; ++i) {
        AtspiAccessible* child = atspi_accessible_get_child_at_index(node, i, &error);
        clear(error);
        if (!child) continue;
        collect(child, depth + 1, role, out);
        g_object_unref(child);
    }
}

bool doFirstAction(AtspiAccessible* node) {
    AtspiAction* action = atspi_accessible_get_action_iface(node);
    if (!action) return false;
    GError* error = nullptr;
    const bool done = atspi_action_do_action(action, 0, &error);
    clear(error);
    g_object_unref(action);
    return done;
}

void release(std::vector<AtspiAccessible*>& nodes) {
    for (auto* n : nodes) g_object_unref(n);
    nodes.clear();
}

// One look at the application's windows: ticks boxes if asked, clicks the button if it is there and
// sensitive. True once clicked.
bool answerOnce(const std::string& application, const std::string& button, bool checkAll) {
    GError* error = nullptr;
    AtspiAccessible* desktop = atspi_get_desktop(0);
    const int apps = desktop ? atspi_accessible_get_child_count(desktop, &error) : 0;
    clear(error);
    bool clicked = false;
    for (int i = 0; i < apps && !clicked; ++i) {
        AtspiAccessible* app = atspi_accessible_get_child_at_index(desktop, i, &error);
        clear(error);
        if (!app) continue;
        const bool match = take(atspi_accessible_get_name(app, &error)) == application;
        clear(error);
        const int windows = match ? atspi_accessible_get_child_count(app, &error) : 0;
        clear(error);
        for (int w = 0; w < windows && !clicked; ++w) {
            AtspiAccessible* window = atspi_accessible_get_child_at_index(app, w, &error);
            clear(error);
            if (!window) continue;
            std::vector<AtspiAccessible*> buttons;
            collect(window, 0, "push button", buttons);
            AtspiAccessible* target = nullptr;
            for (auto* b : buttons) {
                if (namedAs(take(atspi_accessible_get_name(b, &error)), button) &&
                    hasState(b, ATSPI_STATE_VISIBLE))
                    target = b;
                clear(error);
            }
            if (target && checkAll) {
                std::vector<AtspiAccessible*> boxes;
                collect(window, 0, "check box", boxes);
                for (auto* box : boxes)
                    if (!hasState(box, ATSPI_STATE_CHECKED)) doFirstAction(box);
                release(boxes);
            }
            // The confirm button turns sensitive once the boxes are ticked; the next look clicks it.
            if (target && hasState(target, ATSPI_STATE_SENSITIVE)) clicked = doFirstAction(target);
            release(buttons);
            g_object_unref(window);
        }
        g_object_unref(app);
    }
    if (desktop) g_object_unref(desktop);
    return clicked;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) return 2;
    const std::string application = argv[1];
    const std::string button = argv[2];
    bool checkAll = false;
    double timeout = 10.0;
    for (int i = 3; i < argc; ++i) {
        if (std::strcmp(argv[i], "--check-all") == 0)
            checkAll = true;
        else if (std::strcmp(argv[i], "--timeout") == 0 && i + 1 < argc)
            timeout = std::atof(argv[++i]);
        else
            return 2;
    }
    if (atspi_init() > 1) {
        std::cerr << "cannot reach the accessibility bus\n";
        return 1;
    }
    atspi_set_timeout(2000, 10000);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(timeout);
    while (std::chrono::steady_clock::now() < deadline) {
        if (answerOnce(application, button, checkAll)) return 0;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    std::cerr << "no button \"" << button << "\" in " << application << " within " << timeout << " s\n";
    return 1;
}
