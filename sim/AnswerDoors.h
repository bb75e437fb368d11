// What BoardAnswer stands in front of.
#pragma once

enum {
    ANSWER_PCI_PORTS = 1,     // configuration mechanism 1
    ANSWER_OTHER_PORTS = 2,   // all but these and the delay port
    ANSWER_DEVICE_MEMORY = 4, // from 2 GiB up
    ANSWER_MSRS = 8,          // those that the board has
};
