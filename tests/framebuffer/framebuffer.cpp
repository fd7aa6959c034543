// Lets a regular file pass for the panel's framebuffer, on a machine that has none: preload this library and
// make the file /dev/fb0 large enough for the picture. Its content is the picture, 4 bytes a pixel: blue,
// green, red and one that is not used.
#include <cstdarg>
#include <cstring>
#include <linux/fb.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr unsigned WIDTH = 480; // pixels
constexpr unsigned HEIGHT = 272;
constexpr unsigned BITS_PER_PIXEL = 32;
constexpr unsigned LINE_LENGTH = WIDTH * BITS_PER_PIXEL / 8; // bytes

bool isRegularFile(int fd) {
    struct stat status {};
    return fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
}

fb_var_screeninfo mode() {
    fb_var_screeninfo mode{};
    mode.xres = mode.xres_virtual = WIDTH;
    mode.yres = mode.yres_virtual = HEIGHT;
    mode.bits_per_pixel = BITS_PER_PIXEL;
    mode.blue = {0, 8, 0};
    mode.green = {8, 8, 0};
    mode.red = {16, 8, 0};
    mode.width = 95; // millimetres
    mode.height = 54;
    return mode;
}

fb_fix_screeninfo memory() {
    fb_fix_screeninfo memory{};
    std::strcpy(memory.id, "file");
    memory.smem_len = LINE_LENGTH * HEIGHT;
    memory.line_length = LINE_LENGTH;
    memory.visual = FB_VISUAL_TRUECOLOR;
    return memory;
}

} // namespace

// By the name that Qt calls: on 32-bit machines, the headers give ioctl() another one.
extern "C" int answer(int fd, unsigned long request, ...) noexcept asm("ioctl");

extern "C" int answer(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    if (isRegularFile(fd)) {
        switch (request) {
        case FBIOGET_VSCREENINFO:
            *static_cast<fb_var_screeninfo*>(argument) = mode();
            return 0;
        case FBIOGET_FSCREENINFO:
            *static_cast<fb_fix_screeninfo*>(argument) = memory();
            return 0;
        case FBIOPUT_VSCREENINFO:
        case FBIOPAN_DISPLAY:
        case FBIOBLANK:
            return 0;
        default:
            break;
        }
    }
    return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
}
