#include "BasicLib/PortIo.h"

constexpr uint32_t DELAY_PORT = 0xED;

uint32_t inb(uint32_t port) {
    uint8_t value;
    __asm__ volatile("inb %1, %0" : "=a"(value) : "Nd"(static_cast<uint16_t>(port)) : "memory");
    return value;
}

uint32_t inw(uint32_t port) {
    uint16_t value;
    __asm__ volatile("inw %1, %0" : "=a"(value) : "Nd"(static_cast<uint16_t>(port)) : "memory");
    return value;
}

uint32_t inl(uint32_t port) {
    uint32_t value;
    __asm__ volatile("inl %1, %0" : "=a"(value) : "Nd"(static_cast<uint16_t>(port)) : "memory");
    return value;
}

uint32_t outb(uint32_t value, uint32_t port) {
    __asm__ volatile("outb %0, %1"
                     :
                     : "a"(static_cast<uint8_t>(value)), "Nd"(static_cast<uint16_t>(port))
                     : "memory");
    return value & 0xFF;
}

void outw(uint32_t value, uint32_t port) {
    __asm__ volatile("outw %0, %1"
                     :
                     : "a"(static_cast<uint16_t>(value)), "Nd"(static_cast<uint16_t>(port))
                     : "memory");
}

uint32_t outl(uint32_t value, uint32_t port) {
    __asm__ volatile("outl %0, %1" : : "a"(value), "Nd"(static_cast<uint16_t>(port)) : "memory");
    return value;
}

uint32_t IoRead8(uint32_t port) {
    return inb(port & 0xFFFF) & 0xFF;
}

uint32_t IoRead16(uint32_t port) {
    return inw(port & 0xFFFF) & 0xFFFF;
}

uint32_t IoRead32(uint32_t port) {
    return inl(port & 0xFFFF);
}

void IoWrite8(uint32_t port, uint32_t value) {
    outb(value & 0xFF, port & 0xFFFF);
}

void IoWrite16(uint32_t port, uint32_t value) {
    outw(value & 0xFFFF, port & 0xFFFF);
}

void IoWrite32(uint32_t port, uint32_t value) {
    outl(value, port & 0xFFFF);
}

void IoDelay(uint32_t count) {
    for (; count > 0; --count)
        IoWrite8(DELAY_PORT, 0);
}
