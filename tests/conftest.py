"""What holds for all tests."""

import signal

# A program under test inherits what is ignored here, and whoever starts the tests in the background (nohup, "&" in a
# script) has these two ignored.
signal.signal(signal.SIGINT, signal.default_int_handler)
signal.signal(signal.SIGHUP, signal.SIG_DFL)
