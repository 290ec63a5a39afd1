/* All that a C program needs on a Cortex-M0 (a BBC micro:bit, or QEMU's model of it) besides the
 * linker script: a vector table, a start, and functions through which the C library writes and
 * exits. These ask the debugger (semihosting); a product would write to its serial port instead. */

#include <stdint.h>
#include <stdlib.h>

/* Set by the linker script. */
extern uint32_t stack_top[], data_load[], data_begin[], data_end[], bss_begin[], bss_end[];

int main(void);
void reset(void);
int _write(int file, const char* text, int length);
void _exit(int status);

/* The operations are numbered by Arm; r0 and r1 are where the debugger expects them. */
enum { WRITE_CHARACTER = 0x03, EXIT_WITH_STATUS = 0x20 };

static void ask_debugger(int operation, const void* argument) {
    register int r0 __asm__("r0") = operation;
    register const void* r1 __asm__("r1") = argument;
    __asm__ volatile("bkpt 0xab" : "+r"(r0) : "r"(r1) : "memory");
}

int _write(int file, const char* text, int length) {
    (void)file;
    for (int i = 0; i < length; ++i) {
        ask_debugger(WRITE_CHARACTER, &text[i]);
    }
    return length;
}

void _exit(int status) {
    const int reason[2] = {0x20026, status}; /* the program ended by itself */
    ask_debugger(EXIT_WITH_STATUS, reason);
    for (;;) {
    }
}

void reset(void) {
    const uint32_t* from = data_load;
    for (uint32_t* to = data_begin; to < data_end; ++to) {
        *to = *from++;
    }
    for (uint32_t* to = bss_begin; to < bss_end; ++to) {
        *to = 0;
    }
    exit(main());
}

static void stop(void) {
    _exit(EXIT_FAILURE);
}

/* The processor loads its stack pointer from here, then jumps to the first function; the other two
 * take faults. This program uses no interrupt. */
__attribute__((section(".vectors"), used)) static const struct {
    uint32_t* stack;
    void (*functions[3])(void);
} vectors = {stack_top, {reset, stop, stop}};
