#include "tools/check/machine/MemoryMap.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Common/FileLib.h"
#include "tools/check/machine/KernelFiles.h"

constexpr uint32_t MOST_RESOURCES = 4096;

struct ResourceList {
    bool read;
    uint32_t count;
    Resource resources[MOST_RESOURCES];
};

static ResourceList mMemory;
static ResourceList mPorts;

// "  000f0000-000fffff : System ROM", indented by two blanks for each range around it.
static bool TakeLine(const char *line, Resource *resource) {
    uint32_t blanks = static_cast<uint32_t>(strspn(line, " "));
    char *rest = nullptr;
    resource->depth = blanks / 2;
    resource->first = strtoull(line + blanks, &rest, 16);
    if (*rest != '-')
        return false;
    resource->last = strtoull(rest + 1, &rest, 16);
    if (strncmp(rest, " : ", 3) != 0 || resource->last < resource->first)
        return false;
    snprintf(resource->name, sizeof(resource->name), "%s", rest + 3);
    return true;
}

static uint32_t ListOf(const char *path, ResourceList *list, const Resource **resources) {
    *resources = list->resources;
    if (list->read)
        return list->count;
    list->read = true;
    char line[KERNEL_LINE];
    bool told = false;
    FILE *file = OpenToRead(path);
    while (list->count < MOST_RESOURCES && NextLine(file, line)) {
        Resource *resource = &list->resources[list->count];
        if (!TakeLine(line, resource))
            continue;
        told |= resource->last != 0;
        ++list->count;
    }
    if (file != nullptr)
        Fclose(file);
    list->count = told ? list->count : 0; // without CAP_SYS_ADMIN all addresses are 0
    return list->count;
}

uint32_t MemoryMap(const Resource **list) {
    return ListOf("/proc/iomem", &mMemory, list);
}

uint32_t PortMap(const Resource **list) {
    return ListOf("/proc/ioports", &mPorts, list);
}

bool MapHas(const char *name, uint64_t first, uint64_t last) {
    const Resource *list;
    uint32_t count = MemoryMap(&list);
    for (uint32_t i = 0; i < count; ++i) {
        if (list[i].first <= last && first <= list[i].last && strcmp(list[i].name, name) == 0)
            return true;
    }
    return false;
}

const Resource *ClaimantOf(uint64_t address) {
    const Resource *list;
    const Resource *claimant = nullptr;
    uint32_t count = MemoryMap(&list);
    for (uint32_t i = 0; i < count; ++i) {
        if (list[i].first <= address && address <= list[i].last)
            claimant = &list[i];
    }
    return claimant;
}
