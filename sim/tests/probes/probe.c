/* Goes through the doors of the board in the order of its arguments and prints what comes back.
 *
 *   iopl 3 | in8 PORT | in16 | in32 | out8 PORT VALUE | ... | inimm8 | outimm8 ... (port 0x80 as an
 * immediate) inrax8 PORT: what the whole of RAX holds afterwards when it held 0x1122334455667788 insb PORT
 *   open PATH FLAGS (r, w, rw; s for O_SYNC, e for O_CLOEXEC, c for O_CREAT) | openat ... | open64 ... |
 * close FD fopen PATH MODE | fgets | fclose | dup FD | write FD TEXT | puts TEXT pread FD OFFSET COUNT |
 * pwrite FD OFFSET VALUE (of 8 bytes) | map FD ADDRESS LENGTH PROTECTION (r, w) | unmap load FORM OFFSET |
 * store FORM OFFSET VALUE | copy FORM OFFSET COUNT (FORM: repmovsb or memcpy) unmapat OFFSET LENGTH | movs
 * FROM TO (offsets; - for no memory at all) | repeat PORT COUNT | crash system COMMAND | cpuid LEAF |
 * cpuid-before-data LEAF | cpuid-stepped LEAF | like-cpuid | code-pages | hold (all signals but those of
 * faults) | child (forks; the rest is done there) | ud2 | raise SIGNAL | bind CPU | allowed
 */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/io.h>
#include <sys/mman.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

static char **gArguments;
static uint8_t *gMapping;
static size_t gMappingLength;
static FILE *gStream;

static const char *Word(void) {
    if (!*gArguments) {
        fprintf(stderr, "probe: an argument is missing\n");
        exit(2);
    }
    return *gArguments++;
}

static uint64_t Number(void) {
    return strtoull(Word(), NULL, 16);
}

static void Show(const char *what, uint64_t value) {
    printf("%s %llx\n", what, (unsigned long long)value);
    fflush(stdout);
}

static void ShowResult(const char *what, long result) {
    if (result < 0)
        printf("%s %s\n", what, strerrorname_np(errno));
    else
        printf("%s %ld\n", what, result);
    fflush(stdout);
}

static int Flags(const char *text) {
    int flags = strstr(text, "rw") ? O_RDWR : strchr(text, 'w') ? O_WRONLY : O_RDONLY;
    return flags | (strchr(text, 's') ? O_SYNC : 0) | (strchr(text, 'e') ? O_CLOEXEC : 0) |
           (strchr(text, 'c') ? O_CREAT : 0);
}

static uint64_t In(const char *form, uint16_t port, uint64_t rax) {
    if (!strcmp(form, "8"))
        __asm__ volatile("inb %%dx, %%al" : "+a"(rax) : "d"(port));
    else if (!strcmp(form, "16"))
        __asm__ volatile("inw %%dx, %%ax" : "+a"(rax) : "d"(port));
    else if (!strcmp(form, "32"))
        __asm__ volatile("inl %%dx, %%eax" : "+a"(rax) : "d"(port));
    else if (!strcmp(form, "imm8"))
        __asm__ volatile("inb $0x80, %%al" : "+a"(rax));
    else if (!strcmp(form, "imm16"))
        __asm__ volatile("inw $0x80, %%ax" : "+a"(rax));
    else
        __asm__ volatile("inl $0x80, %%eax" : "+a"(rax));
    return rax;
}

static void Out(const char *form, uint16_t port, uint64_t rax) {
    if (!strcmp(form, "8"))
        __asm__ volatile("outb %%al, %%dx" : : "a"(rax), "d"(port));
    else if (!strcmp(form, "16"))
        __asm__ volatile("outw %%ax, %%dx" : : "a"(rax), "d"(port));
    else if (!strcmp(form, "32"))
        __asm__ volatile("outl %%eax, %%dx" : : "a"(rax), "d"(port));
    else if (!strcmp(form, "imm8"))
        __asm__ volatile("outb %%al, $0x80" : : "a"(rax));
    else if (!strcmp(form, "imm16"))
        __asm__ volatile("outw %%ax, $0x80" : : "a"(rax));
    else
        __asm__ volatile("outl %%eax, $0x80" : : "a"(rax));
}

static void ShowWide(const uint8_t *bytes, int count) {
    printf("load ");
    while (count-- > 0)
        printf("%02x", bytes[count]);
    printf("\n");
}

__attribute__((target("avx"))) static void LoadYmm(const void *at, uint8_t *bytes) {
    __asm__ volatile("vmovdqu (%0), %%ymm1; vmovdqu %%ymm1, (%1)" : : "r"(at), "r"(bytes) : "xmm1", "memory");
}
__attribute__((target("avx"))) static void StoreYmm(void *at, const uint8_t *bytes) {
    __asm__ volatile("vmovups (%1), %%ymm1; vmovups %%ymm1, (%0)" : : "r"(at), "r"(bytes) : "xmm1", "memory");
}
__attribute__((target("avx512f"))) static void LoadZmm(const uint8_t *at, uint8_t *bytes) {
    /* a compressed displacement of one unit */
    __asm__ volatile("vmovdqu64 64(%0), %%zmm1; vmovdqu64 %%zmm1, (%1)"
                     :
                     : "r"(at - 64), "r"(bytes)
                     : "xmm1", "memory");
}

/* Each form is one instruction of that name at the address. */
static void Load(const char *form, uint8_t *at) {
    uint64_t value = 0;
    uint8_t wide[64];
#define FORM(name, text)                                                                                     \
    if (!strcmp(form, name)) {                                                                               \
        __asm__ volatile(text : "+a"(value) : "r"(at), "b"((uint64_t)0) : "memory", "cc", "xmm1");           \
        Show("load", value);                                                                                 \
        return;                                                                                              \
    }
    FORM("mov8", "movb (%1), %%al")
    FORM("mov16", "movw (%1), %%ax")
    FORM("mov32", "movl (%1), %%eax")
    FORM("mov64", "movq (%1), %%rax")
    FORM("movzx8", "movzbl (%1), %%eax")
    FORM("movzx16", "movzwl (%1), %%eax")
    FORM("movsx8", "movsbq (%1), %%rax")
    FORM("movsx16", "movswl (%1), %%eax")
    FORM("movsxd", "movslq (%1), %%rax")
    FORM("movr9", "movq %1, %%r9; movl (%%r9), %%r10d; movl %%r10d, %%eax")
    FORM("sib", "movl 0x10(%1,%%rbx,4), %%eax")
    FORM("disp32", "movl 0x200(%1), %%eax")
    FORM("r12", "movq %1, %%r12; movl (%%r12), %%eax")
    FORM("r13", "movq %1, %%r13; movl (%%r13), %%eax")
    FORM("cmp8", "cmpb $0x86, (%1); sete %%al")
    FORM("test32", "testl $0x80, (%1); setnz %%al")
    FORM("add32", "addl (%1), %%eax")
    FORM("cmov", "cmpl %%eax, %%eax; cmovel (%1), %%eax")
    FORM("movd", "movd (%1), %%xmm1; movd %%xmm1, %%eax")
    FORM("movq", "movq (%1), %%xmm1; movq %%xmm1, %%rax")
    FORM("lodsd", "movq %1, %%rsi; lodsl")
    FORM("movbe", "movbe (%1), %%eax")
#undef FORM
    if (!strcmp(form, "movdqu"))
        __asm__ volatile("movdqu (%0), %%xmm1; movdqu %%xmm1, (%1)"
                         :
                         : "r"(at), "r"(wide)
                         : "xmm1", "memory");
    else if (!strcmp(form, "movaps"))
        __asm__ volatile("movaps (%0), %%xmm1; movups %%xmm1, (%1)"
                         :
                         : "r"(at), "r"(wide)
                         : "xmm1", "memory");
    else if (!strcmp(form, "ymm"))
        LoadYmm(at, wide);
    else if (!strcmp(form, "zmm"))
        LoadZmm(at, wide);
    else {
        fprintf(stderr, "probe: no such load\n");
        exit(2);
    }
    ShowWide(wide, form[0] == 'y' ? 32 : form[0] == 'z' ? 64 : 16);
}

static void Store(const char *form, uint8_t *at, uint64_t value) {
    uint8_t wide[32];
    for (int i = 0; i < 32; i++)
        wide[i] = (uint8_t)(value + (uint64_t)i);
#define FORM(name, text)                                                                                     \
    if (!strcmp(form, name)) {                                                                               \
        __asm__ volatile(text : : "a"(value), "r"(at) : "memory", "cc", "xmm1", "rdi", "r9");                \
        return;                                                                                              \
    }
    FORM("mov8", "movb %%al, (%1)")
    FORM("mov16", "movw %%ax, (%1)")
    FORM("mov32", "movl %%eax, (%1)")
    FORM("mov64", "movq %%rax, (%1)")
    FORM("imm8", "movb $0x5a, (%1)")
    FORM("imm16", "movw $0x5aa5, (%1)")
    FORM("imm32", "movl $0x12345678, (%1)")
    FORM("movr9", "movq %%rax, %%r9; movl %%r9d, (%1)")
    FORM("movnti", "movnti %%eax, (%1)")
    FORM("movd", "movd %%eax, %%xmm1; movd %%xmm1, (%1)")
    FORM("stosd", "movq %1, %%rdi; stosl")
    FORM("xchg", "xchgl %%eax, (%1)")
    FORM("or32", "orl %%eax, (%1)")
    FORM("or8", "orb $0x01, (%1)")
#undef FORM
    if (!strcmp(form, "movdqu"))
        __asm__ volatile("movdqu (%1), %%xmm1; movdqu %%xmm1, (%0)"
                         :
                         : "r"(at), "r"(wide)
                         : "xmm1", "memory");
    else if (!strcmp(form, "ymm"))
        StoreYmm(at, wide);
    else {
        fprintf(stderr, "probe: no such store\n");
        exit(2);
    }
}

static void Copy(const char *form, const uint8_t *at, size_t count) {
    uint8_t *buffer = malloc(count);
    uint64_t sum = 0;
    if (!strcmp(form, "repmovsb")) {
        uint8_t *to = buffer;
        size_t left = count;
        __asm__ volatile("rep movsb" : "+S"(at), "+D"(to), "+c"(left) : : "memory");
    } else
        memcpy(buffer, at, count);
    for (size_t i = 0; i < count; i++)
        sum += buffer[i];
    Show("copy", sum);
    free(buffer);
}

static void Map(int descriptor, uint64_t address, size_t length, const char *protection) {
    int bits = (strchr(protection, 'r') ? PROT_READ : 0) | (strchr(protection, 'w') ? PROT_WRITE : 0);
    void *at = mmap(NULL, length, bits, MAP_SHARED, descriptor, (off_t)address);
    if (at != MAP_FAILED) {
        gMapping = at;
        gMappingLength = length;
    }
    printf("map %s\n", at == MAP_FAILED ? strerrorname_np(errno) : "ok");
    fflush(stdout);
}

static void Transfer(const char *word) {
    int descriptor = (int)Number();
    off_t offset = (off_t)Number();
    uint64_t value = 0;
    if (!strcmp(word, "pread")) {
        size_t count = Number();
        ssize_t got = pread(descriptor, &value, count > 8 ? 8 : count, offset);
        ShowResult("pread", got);
        if (got > 0)
            Show("value", value);
    } else {
        value = Number();
        ShowResult("pwrite", pwrite(descriptor, &value, sizeof value, offset));
    }
}

static void ShowCpuid(uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
    printf("cpuid %08x %08x %08x %08x\n", a, b, c, d);
    fflush(stdout);
}

__attribute__((noinline)) static void Cpuid(uint32_t leaf) {
    uint32_t a = leaf, b, c = 0, d;
    __asm__ volatile("cpuid" : "+a"(a), "=b"(b), "+c"(c), "=d"(d));
    ShowCpuid(a, b, c, d);
}

/* In a function that cannot be decoded. */
__attribute__((noinline)) static void CpuidBeforeData(uint32_t leaf) {
    uint32_t a = leaf, b, c = 0, d;
    __asm__ volatile("cpuid; jmp 1f; .byte 0x06; 1:" : "+a"(a), "=b"(b), "+c"(c), "=d"(d));
    ShowCpuid(a, b, c, d);
}

static volatile int gSteps;

static void CountStep(int signal) {
    (void)signal;
    gSteps++;
}

/* With the trap flag: how many times it stopped afterwards is shown, too. */
__attribute__((noinline)) static void CpuidStepped(uint32_t leaf) {
    uint32_t a = leaf, b, c = 0, d;
    __asm__ volatile("pushfq; orl $0x100, (%%rsp); popfq\n"
                     "nop; cpuid; nop; nop\n"
                     "pushfq; andl $~0x100, (%%rsp); popfq"
                     : "+a"(a), "=b"(b), "+c"(c), "=d"(d)
                     :
                     : "memory", "cc");
    ShowCpuid(a, b, c, d);
    Show("steps", (uint64_t)gSteps);
}

/* The bytes of CPUID in other instructions, at their end and in front of the real one. */
__attribute__((noinline)) static uint64_t LikeCpuid(void) {
    uint32_t one, other;
    __asm__ volatile("movl $0xa20fa20f, %0" : "=r"(one));
    __asm__ volatile("leal 0xa20f(%1), %0" : "=r"(other) : "r"((uint64_t)one));
    return other;
}

/* How the page is mapped that holds CPUID. */
static void CodePages(void) {
    FILE *maps = fopen("/proc/self/maps", "r");
    char line[500], protection[8];
    unsigned long start, end, at = (unsigned long)(uintptr_t)Cpuid;
    while (fgets(line, sizeof line, maps))
        if (sscanf(line, "%lx-%lx %7s", &start, &end, protection) == 3 && start <= at && at < end)
            printf("code %s\n", protection);
    fclose(maps);
}

static void HoldSignals(void) {
    sigset_t held;
    sigfillset(&held);
    sigdelset(&held, SIGILL);
    sigdelset(&held, SIGSEGV);
    sigdelset(&held, SIGTRAP);
    sigprocmask(SIG_BLOCK, &held, NULL);
}

static void GoOnInChild(void) {
    int status = 0;
    pid_t child = fork();
    if (child == 0)
        return;
    waitpid(child, &status, 0);
    exit(WEXITSTATUS(status));
}

static void Bind(unsigned cpu) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(cpu, &one);
    int failed = sched_setaffinity(0, sizeof one, &one);
    printf("bind %u -> %s\n", cpu, failed ? strerrorname_np(errno) : "ok");
}

static void Allowed(void) {
    cpu_set_t cpus;
    sched_getaffinity(0, sizeof cpus, &cpus);
    printf("allowed");
    for (int cpu = 0; cpu < CPU_SETSIZE; cpu++)
        if (CPU_ISSET(cpu, &cpus))
            printf(" %d", cpu);
    printf("\n");
}

/* Words about the processor; false when it is none of them. */
static int Processor(const char *word) {
    if (!strcmp(word, "cpuid"))
        Cpuid((uint32_t)Number());
    else if (!strcmp(word, "cpuid-before-data"))
        CpuidBeforeData((uint32_t)Number());
    else if (!strcmp(word, "cpuid-stepped")) {
        signal(SIGTRAP, CountStep);
        CpuidStepped((uint32_t)Number());
    } else if (!strcmp(word, "like-cpuid"))
        Show("like-cpuid", LikeCpuid());
    else if (!strcmp(word, "code-pages"))
        CodePages();
    else if (!strcmp(word, "bind"))
        Bind((unsigned)Number());
    else if (!strcmp(word, "allowed"))
        Allowed();
    else if (!strcmp(word, "ud2"))
        __asm__ volatile("ud2");
    else
        return 0;
    return 1;
}

static void Descriptors(const char *word) {
    if (!strcmp(word, "open")) {
        const char *path = Word();
        ShowResult("open", open(path, Flags(Word()), 0666));
    } else if (!strcmp(word, "open64")) {
        const char *path = Word();
        ShowResult("open", open64(path, Flags(Word()), 0666));
    } else if (!strcmp(word, "openat")) {
        const char *path = Word();
        ShowResult("open", openat(AT_FDCWD, path, Flags(Word()), 0666));
    } else if (!strcmp(word, "fopen")) {
        const char *path = Word();
        gStream = fopen(path, Word());
        ShowResult("fopen", gStream ? fileno(gStream) : -1);
    } else if (!strcmp(word, "fgets")) {
        char text[200] = "";
        while (fgets(text, sizeof text, gStream))
            printf("line %s", text);
    } else if (!strcmp(word, "fclose"))
        ShowResult("fclose", fclose(gStream));
    else if (!strcmp(word, "close"))
        ShowResult("close", close((int)Number()));
    else if (!strcmp(word, "dup"))
        ShowResult("dup", dup((int)Number()));
    else if (!strcmp(word, "write")) {
        int descriptor = (int)Number();
        const char *text = Word();
        ShowResult("write", write(descriptor, text, strlen(text)));
    } else if (!strcmp(word, "puts")) {
        puts(Word());
        fflush(stdout);
    } else if (!strcmp(word, "pread") || !strcmp(word, "pwrite"))
        Transfer(word);
    else {
        fprintf(stderr, "probe: unknown word %s\n", word);
        exit(2);
    }
}

int main(int argc, char **argv) {
    (void)argc;
    gArguments = argv + 1;
    while (*gArguments) {
        const char *word = Word();
        if (!strcmp(word, "iopl"))
            ShowResult("iopl", iopl((int)Number()));
        else if (!strncmp(word, "inrax", 5))
            Show("rax", In(word + 5, (uint16_t)Number(), 0x1122334455667788));
        else if (!strcmp(word, "insb")) {
            uint8_t byte;
            void *to = &byte;
            __asm__ volatile("insb" : "+D"(to) : "d"((uint16_t)Number()) : "memory");
        } else if (!strncmp(word, "in", 2))
            Show("in", In(word + 2, strstr(word, "imm") ? 0 : (uint16_t)Number(), 0));
        else if (!strncmp(word, "out", 3)) {
            uint16_t port = strstr(word, "imm") ? 0 : (uint16_t)Number();
            Out(word + 3, port, Number());
        } else if (!strcmp(word, "map")) {
            int descriptor = (int)Number();
            uint64_t address = Number();
            size_t length = Number();
            Map(descriptor, address, length, Word());
        } else if (!strcmp(word, "unmap"))
            ShowResult("unmap", munmap(gMapping, gMappingLength));
        else if (!strcmp(word, "unmapat")) {
            uint64_t offset = Number();
            ShowResult("unmap", munmap(gMapping + offset, Number()));
        } else if (!strcmp(word, "load")) {
            const char *form = Word();
            Load(form, gMapping + Number());
        } else if (!strcmp(word, "store")) {
            const char *form = Word();
            uint64_t offset = Number();
            Store(form, gMapping + offset, Number());
        } else if (!strcmp(word, "copy")) {
            const char *form = Word();
            uint64_t offset = Number();
            Copy(form, gMapping + offset, Number());
        } else if (!strcmp(word, "movs")) { /* from one offset to another */
            uint8_t *from = gMapping + Number();
            const char *where = Word();
            uint8_t *to = *where == '-' ? NULL : gMapping + strtoull(where, NULL, 16);
            __asm__ volatile("movsl" : "+S"(from), "+D"(to) : : "memory");
        } else if (!strcmp(word, "repeat")) { /* in8 PORT, COUNT times */
            uint16_t port = (uint16_t)Number();
            for (uint64_t count = Number(); count > 0; count--)
                In("8", port, 0);
        } else if (!strcmp(word, "system"))
            ShowResult("system", system(Word()));
        else if (!strcmp(word, "hold"))
            HoldSignals();
        else if (!strcmp(word, "child"))
            GoOnInChild();
        else if (!strcmp(word, "crash"))
            *(volatile int *)strtoull("8", NULL, 16) = 1;
        else if (!strcmp(word, "raise"))
            raise((int)Number());
        else if (!Processor(word))
            Descriptors(word);
    }
    return 0;
}
