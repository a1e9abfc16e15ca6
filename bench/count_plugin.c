/* Counts the instructions that an emulated program executes: a plugin for qemu-user. Its header is
 * not packaged with the emulator, so the few declarations needed stand here. */
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#define EXPORT __attribute__((visibility("default")))

typedef uint64_t plugin_id;
struct qemu_plugin_tb;
typedef void (*translated_fn)(plugin_id id, struct qemu_plugin_tb* block);
typedef void (*exit_fn)(plugin_id id, void* data);

void qemu_plugin_register_vcpu_tb_trans_cb(plugin_id id, translated_fn fn);
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb* block, int add, void* counter,
                                              uint64_t amount);
void qemu_plugin_register_atexit_cb(plugin_id id, exit_fn fn, void* data);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* block);

EXPORT int qemu_plugin_version = 1;

static uint64_t executed;

static void on_translated(plugin_id id, struct qemu_plugin_tb* block) {
  (void)id;
  qemu_plugin_register_vcpu_tb_exec_inline(block, 0, &executed, qemu_plugin_tb_n_insns(block));
}

static void on_exit(plugin_id id, void* data) {
  (void)id;
  (void)data;
  fprintf(stderr, "instructions %llu\n", (unsigned long long)executed);
}

EXPORT int qemu_plugin_install(plugin_id id, const void* info, int argc, char** argv) {
  (void)info;
  (void)argc;
  (void)argv;
  qemu_plugin_register_vcpu_tb_trans_cb(id, on_translated);
  qemu_plugin_register_atexit_cb(id, on_exit, NULL);
  return 0;
}
