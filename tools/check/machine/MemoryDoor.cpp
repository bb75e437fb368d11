#include "tools/check/machine/MemoryDoor.h"

#include <cerrno>
#include <cstring>

#include "BasicLib/Driver.h"
#include "BasicLib/PhysMem.h"
#include "tools/check/machine/KernelFiles.h"
#include "tools/check/machine/MemoryMap.h"
#include "tools/check/machine/Privilege.h"

constexpr uint64_t PAGE_MASK = ~static_cast<uint64_t>(PAGE_4KB - 1);
constexpr uint64_t MEMORY_END = 0x100000000;
constexpr uint32_t FIRST_MIB = 0x100000;
constexpr uint32_t LOCAL_APIC = 0xFEE00000; // claimed by every kernel
constexpr const char *SYSTEM_RAM = "System RAM";

// What a trial of pages of one kind shows.
struct Trial {
    bool any; // one was tried
    int error;
    uint32_t page; // the first one that is refused, else one that is not
    const char *name;
};

static int mError = 0;
static Trial mRam, mClaimed, mTables;

static bool IsGranted(const Trial *trial) {
    return trial->any && trial->error == 0;
}

static bool IsRefused(const Trial *trial) {
    return trial->any && trial->error == EPERM;
}

// Maps, and reads nothing.
static void Try(Trial *trial, uint64_t address, const char *name) {
    if (mError != 0 || address >= MEMORY_END || (trial->any && trial->error != 0))
        return;
    trial->any = true;
    trial->page = static_cast<uint32_t>(address & PAGE_MASK);
    trial->error = ProbePhysMem(trial->page);
    trial->name = name;
}

static bool IsTable(const char *name) {
    return strcmp(name, "ACPI Tables") == 0 || strcmp(name, "ACPI Non-volatile Storage") == 0;
}

// Names of ranges that are claimed on every machine, and of those that a driver claims within a PCI
// function's.
static bool IsClaimed(const Resource *resource, const Resource *outer) {
    static const char *const names[] = {"PCI MMCONFIG", "PCI ECAM", "Local APIC", "IOAPIC"};
    for (const char *name : names) {
        if (strncmp(resource->name, name, strlen(name)) == 0)
            return true;
    }
    return outer != nullptr && outer->depth + 1 == resource->depth && strncmp(outer->name, "0000:", 5) == 0 &&
           strncmp(resource->name, "0000:", 5) != 0;
}

// A range of RAM may begin within the first MiB, which is always granted.
static void TryMap() {
    const Resource *list;
    uint32_t count = MemoryMap(&list);
    for (uint32_t i = 0; i < count; ++i) {
        const Resource *resource = &list[i];
        uint64_t inner = (resource->first + PAGE_4KB - 1) & PAGE_MASK;
        if (strcmp(resource->name, SYSTEM_RAM) == 0 && resource->last > FIRST_MIB)
            Try(&mRam, inner < FIRST_MIB ? FIRST_MIB : inner, SYSTEM_RAM);
        else if (IsTable(resource->name))
            Try(&mTables, inner, resource->name);
        else if (IsClaimed(resource, i == 0 ? nullptr : resource - 1))
            Try(&mClaimed, resource->first, resource->name);
    }
    if (!mRam.any) // the map is hidden
        Try(&mRam, FIRST_MIB, "memory from 1 MiB on");
    if (!mClaimed.any)
        Try(&mClaimed, LOCAL_APIC, "Local APIC");
}

static void NoteOpenError() {
    FindingName why = mError == ENOENT || mError == ENXIO || mError == ENODEV ? FINDING_CONTAINER
                      : HasCapability(CAPABILITY_RAWIO) == TOLD_NO            ? FINDING_PRIVILEGE
                      : !InFirstUserNamespace()                               ? FINDING_NAMESPACE
                      : IsLockedDown()                                        ? FINDING_LOCKDOWN
                                                                              : FINDING_CONTAINER;
    if (why == FINDING_CONTAINER && !InContainer())
        why = FINDING_NONE;
    const char *without =
        why == FINDING_NONE && mError == ENOENT && KernelConfig("CONFIG_DEVMEM") == CONFIG_IS_OFF
            ? " (the kernel was built without CONFIG_DEVMEM)"
            : "";
    Note(FINDING_DEV_MEM, STATE_BAD,
         "the device /dev/mem cannot be opened for reading and writing: %s%s; all memory reads FFh%s%s",
         strerror(mError), without, why == FINDING_NONE ? "" : "; see ", FindingOf(why)->name);
    if (why != FINDING_NONE)
        return Remedy(FINDING_DEV_MEM, "%s", FindingOf(why)->remedy);
    Remedy(FINDING_DEV_MEM, mError == ENOENT
                                ? "make the node (mknod /dev/mem c 1 1) under a kernel with CONFIG_DEVMEM"
                                : "look for rules of a security module and of device control groups");
}

static const char *Says(ConfigValue value) {
    return value == CONFIG_IS_ON    ? "the kernel's configuration has it"
           : value == CONFIG_IS_OFF ? "the kernel's configuration does not have it"
                                    : "the kernel's configuration is not to be found";
}

// Where no page was tried, and where a page that is granted proves nothing, there is only the configuration.
static void NoteByConfig(FindingName name, ConfigValue value, const char *option) {
    Note(name,
         value == CONFIG_IS_UNKNOWN ? STATE_UNKNOWN
         : value == CONFIG_IS_ON    ? STATE_CAUTION
                                    : STATE_GOOD,
         "%s: %s; no page could be tried", option, Says(value));
}

static void NoteStrict() {
    ConfigValue value = KernelConfig("CONFIG_STRICT_DEVMEM");
    if (!mRam.any)
        return NoteByConfig(FINDING_STRICT_DEVMEM, value, "CONFIG_STRICT_DEVMEM");
    if (!IsRefused(&mRam))
        return Note(FINDING_STRICT_DEVMEM, STATE_GOOD,
                    "System RAM can be mapped: %s at %x was not refused (%s)", mRam.name, mRam.page,
                    Says(value));
    Note(FINDING_STRICT_DEVMEM, STATE_CAUTION,
         "the kernel's own memory above 1 MiB is refused (CONFIG_STRICT_DEVMEM): %x was tried", mRam.page);
    Remedy(FINDING_STRICT_DEVMEM, "%s", RemedyOfPage(FINDING_STRICT_DEVMEM));
}

static void NoteIoStrict() {
    ConfigValue value = KernelConfig("CONFIG_IO_STRICT_DEVMEM");
    const char *iomem = KernelParameter("iomem");
    bool relaxed = iomem != nullptr && strcmp(iomem, "relaxed") == 0;
    if (!mClaimed.any)
        return NoteByConfig(FINDING_IO_STRICT_DEVMEM, value, "CONFIG_IO_STRICT_DEVMEM");
    if (!IsRefused(&mClaimed))
        return Note(FINDING_IO_STRICT_DEVMEM, STATE_GOOD,
                    "memory that drivers have claimed can be mapped: %s at %x was not refused (%s)",
                    mClaimed.name, mClaimed.page, relaxed ? "iomem=relaxed" : Says(value));
    Note(FINDING_IO_STRICT_DEVMEM, STATE_CAUTION,
         "memory that a driver has claimed is refused (CONFIG_IO_STRICT_DEVMEM): %s at %x was tried",
         mClaimed.name, mClaimed.page);
    Remedy(FINDING_IO_STRICT_DEVMEM, "%s", RemedyOfPage(FINDING_IO_STRICT_DEVMEM));
}

static void NotePat() {
    if (mTables.any && (mTables.error == EAGAIN || mTables.error == EINVAL)) {
        Note(FINDING_PAT, STATE_BAD,
             "memory that the kernel holds cached is mapped neither uncached nor cached: %s at %x",
             mTables.name, mTables.page);
        return Remedy(FINDING_PAT, "%s", RemedyOfPage(FINDING_PAT));
    }
    if (KernelParameter("nopat") != nullptr)
        return Note(FINDING_PAT, STATE_GOOD, "the page attribute table is off (nopat)");
    if (IsGranted(&mTables))
        return Note(FINDING_PAT, STATE_GOOD,
                    "memory that the kernel holds cached can be mapped: %s at %x was tried", mTables.name,
                    mTables.page);
    Note(FINDING_PAT, mError == 0 ? STATE_GOOD : STATE_UNKNOWN, "%s",
         mError == 0 ? "hwreg maps memory that the kernel holds cached through a second descriptor"
                     : "no page could be tried");
}

void FindMemoryDoor() {
    errno = 0;
    OpenMemoryDevice();
    mError = gMemFd != MEM_FD_NONE ? 0 : errno == 0 ? EMFILE : errno;
    if (mError == 0)
        Note(FINDING_DEV_MEM, STATE_GOOD, "the device /dev/mem can be opened for reading and writing");
    else
        NoteOpenError();
    TryMap();
    NoteStrict();
    NoteIoStrict();
    NotePat();
}

int MemoryError() {
    return mError;
}

int PageError(uint32_t address) {
    return mError != 0 ? mError : ProbePhysMem(address);
}

// A refused page is the kernel's memory or a driver's. Where the map is hidden, the one rule that is in force
// explains it; the first of them where both are.
FindingName ReasonOfPage(uint32_t address, int error) {
    if (mError != 0)
        return FINDING_DEV_MEM;
    if (error == EAGAIN || error == EINVAL)
        return FINDING_PAT;
    uint64_t page = address & PAGE_MASK;
    if (MapHas(SYSTEM_RAM, page, page + PAGE_4KB - 1))
        return FINDING_STRICT_DEVMEM;
    const Resource *list;
    bool known = MemoryMap(&list) != 0;
    return known || !IsRefused(&mRam) ? FINDING_IO_STRICT_DEVMEM : FINDING_STRICT_DEVMEM;
}

const char *RemedyOfPage(FindingName reason) {
    switch (reason) {
    case FINDING_STRICT_DEVMEM:
        return "take memory away from the kernel with memmap=SIZE$ADDRESS on its command line, or use a "
               "kernel without "
               "CONFIG_STRICT_DEVMEM; iomem=relaxed does not help";
    case FINDING_IO_STRICT_DEVMEM:
        return "start the kernel with iomem=relaxed on its command line";
    case FINDING_PAT:
        return "start the kernel with nopat on its command line";
    default:
        return FindingOf(reason)->remedy;
    }
}
