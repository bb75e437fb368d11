// What the kernel says of memory and ports, and what it does not let anybody map.
#pragma once

// Puts the lines of /proc/iomem and /proc/ioports as comments.
void PutResources();

// Puts `refuse` lines for memory that the kernel refuses to map: one page of each range of /proc/iomem is
// tried, and those in which the window has a function. Without that file, it is a page in 64 KiB.
void PutRefusals();
