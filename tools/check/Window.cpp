#include "tools/check/Window.h"

static ConfigWindow mWindow = {WINDOW_UNKNOWN, 0, -1, -1, 0};

void FindWindow() {
}

const ConfigWindow *Window() {
    return &mWindow;
}
