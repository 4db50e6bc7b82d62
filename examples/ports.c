/* A program in C that has settings: it makes those that are missing, prints all, and then each change,
 * whoever makes it, until its standard input ends.
 *
 *   ports STORE|-
 */
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>
#include <vqreg.h>

static const char kPorts[] = "Network/Ports";

/* Tells people why something failed: for a store that cannot be used there is more than the result. */
static int fail(const char* file, const char* what, int result) {
    char why[1024];
    if (vqreg_why(file, why, sizeof why) == 0) {
        snprintf(why, sizeof why, "%s", vqreg_strerror(result));
    }
    fprintf(stderr, "ports: %s: %s\n", what, why);
    return 1;
}

/* One write of the file, and nobody sees a part of it. */
static int make_defaults(vqreg_store* store) {
    uint32_t port = 0;
    char name[64];
    size_t size = sizeof name;
    int result = vqreg_begin_update(store);
    if (result < 0) {
        return result;
    }
    if (vqreg_get_dword(store, kPorts, "Http", &port) == VQREG_E_NOT_FOUND ||
        vqreg_get_dword(store, kPorts, "Http", &port) == VQREG_E_KEY_NOT_FOUND) {
        result = vqreg_set_dword(store, kPorts, "Http", 80);
    }
    if (result >= 0 &&
        vqreg_get_string(store, "Network", "Host", name, &size) == VQREG_E_NOT_FOUND) {
        result = vqreg_set_string(store, "Network", "Host", "localhost");
    }
    {
        const int written = vqreg_end_update(store);
        return result < 0 ? result : written;
    }
}

static void print_data(vqreg_type type, const void* data, size_t size) {
    const unsigned char* const bytes = data;
    uint32_t number = 0;
    size_t i;
    switch (type) {
        case VQREG_DWORD:
            memcpy(&number, data, sizeof number);
            printf("%lu", (unsigned long)number);
            break;
        case VQREG_STRING:
            printf("\"%s\"", (const char*)data);
            break;
        case VQREG_BINARY:
            for (i = 0; i < size; ++i) {
                printf("%02X", bytes[i]);
            }
            break;
        default:
            printf("nothing");
    }
}

static int print_value(void* context, const char* name, vqreg_type type, const void* data,
                       size_t size) {
    printf("%s/%s = ", (const char*)context, name);
    print_data(type, data, size);
    putchar('\n');
    return 0;
}

static int print_all(vqreg_store* store) {
    char network[] = "Network";
    char ports[] = "Network/Ports";
    const int result = vqreg_visit_values(store, network, print_value, network);
    return result < 0 ? result : vqreg_visit_values(store, ports, print_value, ports);
}

static void print_change(const vqreg_change* change) {
    if (change->name == NULL) {
        printf("%s %s\n", change->path, change->is_present ? "made" : "deleted");
        return;
    }
    printf("%s/%s: ", change->path, change->name);
    print_data(change->before.type, change->before.data, change->before.size);
    printf(" -> ");
    print_data(change->after.type, change->after.data, change->after.size);
    putchar('\n');
}

/* Until the standard input ends. A file that is malformed for a while is no reason to give up. */
static void follow(vqreg_watch* watch) {
    struct pollfd sources[2];
    const vqreg_change* change = NULL;
    sources[0].fd = STDIN_FILENO;
    sources[0].events = POLLIN;
    sources[1].fd = vqreg_watch_fd(watch);
    sources[1].events = POLLIN;
    /* Every few seconds without being told: a missing directory that is back is news to nobody. */
    do {
        while (vqreg_watch_next(watch, &change) > 0) {
            print_change(change);
        }
        fflush(stdout);
    } while (poll(sources, 2, 5000) >= 0 && sources[0].revents == 0);
}

int main(int argc, char** argv) {
    const char* const file = argc == 2 && strcmp(argv[1], "-") != 0 ? argv[1] : NULL;
    vqreg_store* store = NULL;
    vqreg_watch* watch = NULL;
    int result = VQREG_OK;
    if (argc != 2) {
        fprintf(stderr, "usage: ports STORE|-\n");
        return 2;
    }
    store = vqreg_open(file, NULL, &result);
    if (store == NULL) {
        return fail(file, "cannot open the store", result);
    }
    result = make_defaults(store);
    /* First the watch, then the look: nothing happens unseen in between. */
    watch = result < 0 ? NULL : vqreg_watch_open(store, "Network", &result);
    if (watch != NULL) {
        result = print_all(store);
        follow(watch);
    }
    vqreg_watch_close(watch);
    vqreg_close(store);
    return result < 0 ? fail(file, "cannot use the store", result) : 0;
}
