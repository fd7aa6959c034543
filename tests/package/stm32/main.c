/* A program as a module has one: vectors, initialised data, tables on a page of their own, a library, and a version word
 * far above everything else. It is linked, converted, packed and flashed; nobody runs it. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

extern uint32_t dataStored, dataStart, dataEnd, bssStart, bssEnd, stackTop;
int main(void);

static char report[80];
static int limits[] = {12, 340, 5600, 78000};
static const char GREETING[] = "module";

__attribute__((section(".tables"), used)) static const uint16_t curve[700] = {1, 4, 9, 16, [699] = 0xBEEF};
__attribute__((section(".version"), used)) static const uint8_t version[] = {1, 3, 0, 0xA5};

void reset(void) {
    memcpy(&dataStart, &dataStored, (size_t)((char*)&dataEnd - (char*)&dataStart));
    memset(&bssStart, 0, (size_t)((char*)&bssEnd - (char*)&bssStart));
    main();
    for (;;) {
    }
}

static void hang(void) {
    for (;;) {
    }
}

__attribute__((section(".vectors"), used)) static void (*const vectors[16])(void) = {
    (void (*)(void))(uintptr_t)&stackTop, reset, hang, hang, hang, hang, hang, [11] = hang, [14] = hang, [15] = hang};

static int compare(const void* one, const void* other) {
    return *(const int*)one - *(const int*)other;
}

int main(void) {
    qsort(limits, sizeof limits / sizeof *limits, sizeof *limits, compare);
    return snprintf(report, sizeof report, "%s %d %f", GREETING, limits[0], curve[3] / 3.0);
}
