/* A program that knows nothing of the project: it opens the adapter's driver
 * device, asks for the system information and prints the vendor and serial. */
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

struct message {
    unsigned int header_length;
    unsigned char signature[8];
    unsigned int timeout;
    unsigned int control_code;
    unsigned int return_code;
    unsigned int length;
    unsigned char data[1032];
};

static void print_field(const char *label, const unsigned char *p, int width) {
    while (width > 0 && (p[width - 1] == ' ' || p[width - 1] == '\0')) width--;
    printf("%s=%.*s\n", label, width, (const char *)p);
}

int main(void) {
    static const unsigned char request[] = {0x5E, 0x01, 0x61, 0x01, 0x00, 0x23, 0x24, 0x24};
    struct message m;
    unsigned char reply[1100];
    int have = 0, need = 0, reads = 0, fd, sum, i;

    if (sizeof m != 1060) return 3;
    fd = open("/vmfs/devices/char/vmkdriver/tovdrv", O_RDWR);
    if (fd < 0) {
        perror("cannot open the adapter");
        return 1;
    }
    memset(&m, 0, sizeof m);
    memcpy(m.data, request, sizeof request);
    if (ioctl(fd, 0x44244101UL, &m) != 0) {
        perror("write");
        return 1;
    }
    while (need == 0 || have < need) {
        if (++reads > 10000) {
            fprintf(stderr, "no reply\n");
            return 1;
        }
        memset(&m, 0, sizeof m);
        if (ioctl(fd, 0x84244101UL, &m) != 0 || m.length > sizeof m.data) {
            perror("read");
            return 1;
        }
        if (m.length == 0 || have + (int)m.length > (int)sizeof reply) continue;
        memcpy(reply + have, m.data, m.length);
        have += (int)m.length;
        if (need == 0 && have >= 5) need = 6 + (reply[3] | reply[4] << 8);
    }
    close(fd);
    for (sum = 0, i = 3; i < need - 1; i++) sum += reply[i];
    if ((sum & 0xFF) != reply[need - 1] || need != 262) {
        fprintf(stderr, "bad reply\n");
        return 1;
    }
    print_field("vendor", reply + 5, 40);
    print_field("serial", reply + 5 + 40, 16);
    return 0;
}
