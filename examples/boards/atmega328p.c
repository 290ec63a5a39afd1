/* What a C program needs on an ATmega328P (an Arduino Uno, or simavr's model of it): an output,
 * here the serial port, and an end. Vectors, start and linker script come with avr-gcc. */

#include <avr/interrupt.h>
#include <avr/io.h>
#include <avr/sleep.h>
#include <stdio.h>

static int put(char character, FILE* stream) {
    (void)stream;
    while ((UCSR0A & _BV(UDRE0)) == 0) {
    }
    UDR0 = (uint8_t)character;
    return 0;
}

static FILE serial_port = FDEV_SETUP_STREAM(put, NULL, _FDEV_SETUP_WRITE);

/* Runs before main(). */
__attribute__((constructor)) static void open_serial_port(void) {
    UBRR0L = 103; /* 9600 baud at 16 MHz */
    UCSR0B = _BV(TXEN0);
    stdout = &serial_port;
}

/* Runs after it. Asleep without interrupts, the processor never wakes, and simavr ends. */
__attribute__((destructor)) static void stop(void) {
    while ((UCSR0A & _BV(TXC0)) == 0) {
    }
    cli();
    sleep_mode();
}
