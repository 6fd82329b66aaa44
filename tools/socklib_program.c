/* An example of a program that uses the socket library, with one command for each thing that it does; start it without
 * arguments to see them. It shows on standard output what it received and on standard error what the library logs.
 *
 *     cc socklib_program.c -lvaltrix_socklib
 */
#define _POSIX_C_SOURCE 200809L

#include <debug_log.h>
#include <netdb.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>
#include <valtrix_socklib.h>

enum { FAILED = -1, LONGEST_TEXT = 1024, ETHERNET_IP = 0x0800 };

/* What the library needs of the program: how much to log (7 is everything), and where to. */

int debug = 7;

int debug_log(const char *function_name, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    flockfile(stderr);
    fprintf(stderr, "%s: ", function_name);
    vfprintf(stderr, format, arguments);
    fputc('\n', stderr);
    funlockfile(stderr);
    va_end(arguments);
    return 0;
}

/* A "-" among the arguments stands for what the library takes by itself. */
static const char *given(const char *argument) {
    return strcmp(argument, "-") != 0 ? argument : NULL;
}

static uint16_t port_of(const char *argument) {
    return (uint16_t)strtoul(argument, NULL, 10);
}

struct destination {
    struct addrinfo info;
    struct sockaddr_in address;
};

/* Fills a list of destinations from pairs of arguments, as getaddrinfo would from names. */
static int read_destinations(struct destination *list, int count, char **pairs) {
    for (int at = 0; at < count; at++) {
        struct destination *const each = &list[at];
        if (socklib_inet_aton(pairs[2 * at], &each->address.sin_addr.s_addr) != 0)
            return FAILED;
        each->address.sin_family = AF_INET;
        each->address.sin_port = socklib_htons(port_of(pairs[2 * at + 1]));
        each->info.ai_addr = (struct sockaddr *)&each->address;
        each->info.ai_addrlen = sizeof each->address;
        each->info.ai_next = at + 1 < count ? &list[at + 1].info : NULL;
    }
    return 0;
}

static int send_syslog(const char *form, const char *text, struct destination *list) {
    const int sock = socklib_open_socket(SOCK_DGRAM, 0);
    if (sock < 0)
        return FAILED;
    char host[256] = "";
    gethostname(host, sizeof host - 1);
    const int result = socklib_syslog_network(sock, &list->info, 0, LOG_LOCAL0, LOG_INFO, strcmp(form, "rfc5424") == 0,
                                              host, "CLIENT", "%s", text);
    if (result > 0)
        printf("a destination failed: %s\n", strerror(result));
    socklib_close_socket(sock);
    return result;
}

static int syslog_command(char **words) {
    int destinations = 0;
    while (words[2 + 2 * destinations] != NULL && words[3 + 2 * destinations] != NULL)
        destinations++;
    struct destination *const list = calloc((size_t)destinations, sizeof *list);
    int result = FAILED;
    if (list != NULL && read_destinations(list, destinations, words + 2) == 0)
        result = send_syslog(words[0], words[1], list);
    free(list);
    return result;
}

static int raw_syslog_command(char **words) {
    const char *const device = words[0];
    const int sock = socklib_open_socket_raw(device, 0, ETHERNET_IP);
    if (sock < 0)
        return FAILED;
    const int result = socklib_syslog_network_raw(sock, device, given(words[1]), words[2], port_of(words[3]),
                                                  LOG_LOCAL0, LOG_INFO, "%s", words[4]);
    socklib_close_socket(sock);
    return result;
}

static int send_frames_command(char **words) {
    const char *const device = words[0];
    const int sock = socklib_open_socket_raw(device, 0, ETHERNET_IP);
    if (sock < 0)
        return FAILED;
    char *data = NULL;
    size_t size = 0;
    ssize_t length;
    int result = 0;
    while (result == 0 && (length = getline(&data, &size, stdin)) > 0) {
        if (data[length - 1] == '\n')
            length--;
        result = socklib_send_eth_raw(sock, device, NULL, NULL, port_of(words[3]), given(words[1]), given(words[2]),
                                      port_of(words[4]), (const uint8_t *)data, (size_t)length);
    }
    free(data);
    socklib_close_socket(sock);
    return result;
}

/* Takes one packet and shows it, as text behind its sender or as hexadecimal digits. */
static int show_packet(int sock, int as_text) {
    uint8_t *packet;
    struct sockaddr_in sender;
    const int size = socklib_receive_packet(sock, &packet, 0, as_text ? &sender : NULL);
    if (size < 0)
        return FAILED;
    if (as_text) {
        char address[INET_ADDRSTRLEN];
        socklib_inet_ntoa(sender.sin_addr.s_addr, address, sizeof address);
        printf("%s: %.*s\n", address, size, packet != NULL ? (const char *)packet : "");
    } else {
        for (int at = 0; at < size; at++)
            printf("%02x", packet[at]);
        printf("\n");
    }
    free(packet);
    return 0;
}

static int receive_frames_command(char **words) {
    const int sock = socklib_open_socket_raw(words[0], 0, (uint16_t)strtoul(words[1], NULL, 16));
    if (sock < 0)
        return FAILED;
    fd_set waiting;
    int highest = -1;
    int left = atoi(words[2]);
    FD_ZERO(&waiting);
    if (socklib_update_sock_info(1, sock, &waiting, &highest) != 0)
        left = FAILED;
    else
        printf("ready\n");
    while (left > 0) {
        fd_set readable = waiting;
        left = socklib_read_select_new(highest, NULL, &readable) == 1 && show_packet(sock, 0) == 0 ? left - 1 : FAILED;
    }
    socklib_close_socket(sock);
    return left;
}

/* Reads one line without what follows it, which select would not see in a buffer. Result: its length, 0 at the end. */
static int read_line(int fd, char *line, int size) {
    int length = 0;
    while (length < size - 1 && read(fd, &line[length], 1) == 1) {
        if (line[length++] == '\n')
            break;
    }
    line[length] = '\0';
    return length;
}

/* Sends what is typed to the group and shows what comes from it, until an empty line or the end of the input. */
static int talk(int sock, uint32_t group, uint16_t port) {
    for (;;) {
        fd_set readable;
        const int sources[] = {STDIN_FILENO, sock};
        if (socklib_read_select(sources, 2, NULL, &readable) < 1)
            return FAILED;
        if (FD_ISSET(sock, &readable)) {
            if (show_packet(sock, 1) != 0)
                return FAILED;
            continue;
        }
        char line[LONGEST_TEXT];
        const int length = read_line(STDIN_FILENO, line, sizeof line);
        if (length <= 1)
            return 0;
        if (socklib_send_udp_packet(sock, line, length - 1, 0, group, socklib_htons(port)) < 0)
            return FAILED;
    }
}

static int group_command(char **words) {
    struct socklib_inet_addr group;
    const uint16_t port = port_of(words[2]);
    if (socklib_inet_pton(words[1], &group) != 0 || group.family != AF_INET)
        return FAILED;
    uint32_t own;
    const int sock = socklib_create_valtrix_udp_socket(words[0], &group, port, 1, &own);
    if (sock < 0)
        return FAILED;
    char text[INET_ADDRSTRLEN];
    printf("member as %s\n", socklib_inet_ntoa(own, text, sizeof text));
    const int result = talk(sock, group.address.ipv4.s_addr, port);
    if (socklib_destroy_valtrix_socket(sock, &group) != 0)
        return FAILED;
    printf("left\n");
    while (read_line(STDIN_FILENO, text, sizeof text) > 0) /* until whoever started us has seen enough */
        ;
    return result;
}

static int read_from_first(int listener, uint32_t size, char *data) {
    const int sock = accept(listener, NULL, NULL);
    if (sock < 0)
        return FAILED;
    const int result = socklib_receive_tcp(sock, data, size, 0);
    socklib_close_socket(sock);
    return result;
}

static int read_tcp_command(char **words) {
    const uint32_t size = (uint32_t)strtoul(words[1], NULL, 10);
    char *const data = malloc(size + 1);
    int result = FAILED;
    const int listener = socklib_create_valtrix_tcp_socket(port_of(words[0]));
    if (data != NULL && listener >= 0 && listen(listener, 1) == 0) {
        printf("ready\n");
        result = read_from_first(listener, size, data);
    }
    if (result >= 0)
        printf("%.*s\n", result, data);
    if (listener >= 0)
        socklib_close_socket(listener);
    free(data);
    return result >= 0 ? 0 : FAILED;
}

static const struct command {
    const char *name;
    int (*run)(char **words); /* 0 when it went well */
    int words;                /* how many at least */
    const char *usage;
} commands[] = {
    {"syslog", syslog_command, 4, "plain|rfc5424 TEXT IP PORT [IP PORT]..."},
    {"raw-syslog", raw_syslog_command, 5, "DEVICE MAC|- IP PORT TEXT"},
    {"send-frames", send_frames_command, 5, "DEVICE MAC|- IP|- SOURCE_PORT PORT   each line of input"},
    {"receive-frames", receive_frames_command, 3, "DEVICE TYPE COUNT   of one Ethernet type, such as 0800"},
    {"group", group_command, 3, "DEVICE GROUP PORT   each line of input; an empty one leaves"},
    {"read-tcp", read_tcp_command, 2, "PORT COUNT   of bytes"},
};

int main(int argc, char **argv) {
    const size_t count = sizeof commands / sizeof commands[0];
    setvbuf(stdout, NULL, _IOLBF, 0);
    for (size_t at = 0; at < count; at++) {
        if (argc >= 2 + commands[at].words && strcmp(argv[1], commands[at].name) == 0)
            return commands[at].run(argv + 2) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    for (size_t at = 0; at < count; at++)
        fprintf(stderr, "usage: socklib_program %s %s\n", commands[at].name, commands[at].usage);
    return 2;
}
