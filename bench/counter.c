// Counts the instructions that programs of the emulated machine execute: a plugin of QEMU's.
//
//   qemu-system-x86_64 ... -plugin libbench_counter.so,out=FILE
//
// Counts from where bench_count begins a command to where it has ended, and writes a line "instructions ports
// kernel-ports" for it: instructions in user space, of them those that access ports, and port accesses of the
// kernel. Each round of a repeated string instruction counts; one that a page fault interrupts counts twice.
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "marks.h"

// QEMU's plugin interface, version 1 (QEMU 7.2 documentation, "QEMU TCG Plugins"); Debian 12 has no package
// of its header.
struct qemu_plugin_tb;
struct qemu_plugin_insn;
typedef uint64_t qemu_plugin_id_t;
enum qemu_plugin_op { QEMU_PLUGIN_INLINE_ADD_U64 };
enum qemu_plugin_cb_flags { QEMU_PLUGIN_CB_NO_REGS };
extern size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb *tb);
extern struct qemu_plugin_insn *qemu_plugin_tb_get_insn(const struct qemu_plugin_tb *tb, size_t i);
extern uint64_t qemu_plugin_insn_vaddr(const struct qemu_plugin_insn *insn);
extern const void *qemu_plugin_insn_data(const struct qemu_plugin_insn *insn);
extern size_t qemu_plugin_insn_size(const struct qemu_plugin_insn *insn);
extern void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id,
                                                  void (*call)(qemu_plugin_id_t, struct qemu_plugin_tb *));
extern void qemu_plugin_register_vcpu_insn_exec_inline(struct qemu_plugin_insn *insn, enum qemu_plugin_op op,
                                                       void *counter, uint64_t number);
extern void qemu_plugin_register_vcpu_insn_exec_cb(struct qemu_plugin_insn *insn,
                                                   void (*call)(unsigned, void *),
                                                   enum qemu_plugin_cb_flags flags, void *data);

#define EXPORTED __attribute__((visibility("default")))
EXPORTED int qemu_plugin_version = 1;

static const uint64_t mUserEnd = UINT64_C(1) << 47;

static struct { uint64_t instructions, ports, kernelPorts; } mCounts;
static FILE *mOut;

static void Begin(unsigned cpu, void *data) {
    (void)cpu, (void)data;
    memset(&mCounts, 0, sizeof mCounts);
}

static void End(unsigned cpu, void *data) {
    (void)cpu, (void)data;
    fprintf(mOut, "%llu %llu %llu\n", (unsigned long long)mCounts.instructions,
            (unsigned long long)mCounts.ports, (unsigned long long)mCounts.kernelPorts);
    fflush(mOut);
}

// in and out, with the port in the instruction or in DX (Intel SDM volume 2): E4h-E7h, ECh-EFh, 66h before
// for a word.
static int IsPortAccess(const uint8_t *code, size_t size) {
    if (size > 1 && code[0] == 0x66)
        code++;
    return (*code & 0xF4) == 0xE4;
}

static int IsMark(const uint8_t *code, size_t size, const char *mark) {
    return size == MARK_SIZE && memcmp(code, mark, MARK_SIZE) == 0;
}

static void Instrument(struct qemu_plugin_insn *insn) {
    int user = qemu_plugin_insn_vaddr(insn) < mUserEnd;
    size_t size = qemu_plugin_insn_size(insn);
    const uint8_t *code = qemu_plugin_insn_data(insn);
    if (user)
        qemu_plugin_register_vcpu_insn_exec_inline(insn, QEMU_PLUGIN_INLINE_ADD_U64, &mCounts.instructions,
                                                   1);
    if (IsPortAccess(code, size))
        qemu_plugin_register_vcpu_insn_exec_inline(insn, QEMU_PLUGIN_INLINE_ADD_U64,
                                                   user ? &mCounts.ports : &mCounts.kernelPorts, 1);
    if (user && IsMark(code, size, MARK_BEGIN))
        qemu_plugin_register_vcpu_insn_exec_cb(insn, Begin, QEMU_PLUGIN_CB_NO_REGS, NULL);
    if (user && IsMark(code, size, MARK_END))
        qemu_plugin_register_vcpu_insn_exec_cb(insn, End, QEMU_PLUGIN_CB_NO_REGS, NULL);
}

static void Translated(qemu_plugin_id_t id, struct qemu_plugin_tb *tb) {
    (void)id;
    for (size_t i = 0; i < qemu_plugin_tb_n_insns(tb); i++)
        Instrument(qemu_plugin_tb_get_insn(tb, i));
}

EXPORTED int qemu_plugin_install(qemu_plugin_id_t id, const void *info, int argc, char **argv) {
    (void)info;
    if (argc != 1 || strncmp(argv[0], "out=", 4) != 0 || !(mOut = fopen(argv[0] + 4, "w")))
        return 1;
    qemu_plugin_register_vcpu_tb_trans_cb(id, Translated);
    return 0;
}
