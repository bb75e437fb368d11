"""What holds for all tests."""

import signal

# A program under test inherits what is ignored here, and whoever starts the tests in the background (nohup, "&" in a
# script) has these ignored.
signal.signal(signal.SIGINT, signal.default_int_handler)
for number in signal.SIGHUP, signal.SIGQUIT, signal.SIGTERM:
    signal.signal(number, signal.SIG_DFL)
