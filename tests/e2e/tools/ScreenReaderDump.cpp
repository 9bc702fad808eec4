// Prints what a screen reader sees of one application: every showing widget, one per line, as
// role, name, text, x, y, width, height and focus, separated by tabs (tabs, line feeds and backslashes in
// texts escaped). Usage: vocle-test-screen-reader APPLICATION_NAME. A process per look: libatspi cannot
// reconnect to another desktop's bus once it has been connected, and every test has its own desktop.
#include <atspi/atspi.h>

#include <iostream>
#include <string>
#include <vector>

namespace {

struct SeenWidget {
    std::string role, name, text;
    int x = 0, y = 0, width = 0, height = 0;
    bool focused = false;
};

std::string take(gchar* s) {
    std::string out = s ? s : "";
    g_free(s);
    return out;
}

void clear(GError*& error) {
    if (error) g_error_free(error);
    error = nullptr;
}

// Widget trees of the screens are shallow; anything deeper is a cycle or a runaway.
constexpr int kMaxDepth = 40;

void collect(AtspiAccessible* node, int depth, std::vector<SeenWidget>& out) {
    if (depth > kMaxDepth) return;
    GError* error = nullptr;
    AtspiStateSet* states = atspi_accessible_get_state_set(node);
    const bool showing = states && atspi_state_set_contains(states, ATSPI_STATE_SHOWING);
    const bool focused = states && atspi_state_set_contains(states, ATSPI_STATE_FOCUSED);
    if (states) g_object_unref(states);
    // Hidden widgets (other screens' leftovers, a closed drawer) are not what a user sees.
    if (!showing) return;

    SeenWidget seen;
    seen.role = take(atspi_accessible_get_role_name(node, &error));
    clear(error);
    seen.name = take(atspi_accessible_get_name(node, &error));
    clear(error);
    seen.focused = focused;
    if (AtspiComponent* component = atspi_accessible_get_component_iface(node)) {
        if (AtspiRect* r = atspi_component_get_extents(component, ATSPI_COORD_TYPE_SCREEN, &error)) {
            seen.x = r->x;
            seen.y = r->y;
            seen.width = r->width;
            seen.height = r->height;
            g_free(r);
        }
        clear(error);
        g_object_unref(component);
    }
    if (AtspiText* text = atspi_accessible_get_text_iface(node)) {
        seen.text = take(atspi_text_get_text(text, 0, -1, &error));
        clear(error);
        g_object_unref(text);
    }
    out.push_back(seen);

    const int count = atspi_accessible_get_child_count(node, &error);
    clear(error);
    for (int i = 0; i < count; ++i) {
        AtspiAccessible* child = atspi_accessible_get_child_at_index(node, i, &error);
        clear(error);
        if (!child) continue;
        collect(child, depth + 1, out);
        g_object_unref(child);
    }
}

std::string escaped(const std::string& s) {
    std::string out;
    for (const char c : s) {
        if (c == '\\') out += "\\\\";
        else if (c == '\t') out += "\\t";
        else if (c == '\n') out += "\\n";
        else out += c;
    }
    return out;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    const std::string application = argv[1];
    if (atspi_init() > 1) {
        std::cerr << "cannot reach the accessibility bus\n";
        return 1;
    }
    atspi_set_timeout(2000, 10000);
    std::vector<SeenWidget> out;
    GError* error = nullptr;
    AtspiAccessible* desktop = atspi_get_desktop(0);
    const int apps = desktop ? atspi_accessible_get_child_count(desktop, &error) : 0;
    clear(error);
    for (int i = 0; i < apps; ++i) {
        AtspiAccessible* app = atspi_accessible_get_child_at_index(desktop, i, &error);
        clear(error);
        if (!app) continue;
        if (take(atspi_accessible_get_name(app, &error)) == application) {
            const int windows = atspi_accessible_get_child_count(app, &error);
            clear(error);
            for (int w = 0; w < windows; ++w) {
                AtspiAccessible* window = atspi_accessible_get_child_at_index(app, w, &error);
                clear(error);
                if (!window) continue;
                collect(window, 0, out);
                g_object_unref(window);
            }
        }
        clear(error);
        g_object_unref(app);
    }
    if (desktop) g_object_unref(desktop);
    for (const auto& w : out)
        std::cout << escaped(w.role) << '\t' << escaped(w.name) << '\t' << escaped(w.text) << '\t' << w.x << '\t' << w.y
                  << '\t' << w.width << '\t' << w.height << '\t' << (w.focused ? 1 : 0) << '\n';
    return 0;
}
