/* consumer FILE: the installed C interface from a program in C. */
#include <stdio.h>
#include <string.h>
#include <vqreg.h>

static int check(int condition, const char* what) {
    if (!condition) {
        fprintf(stderr, "consumer: %s failed\n", what);
    }
    return condition;
}

static int count(void* context, const char* name, vqreg_type type, const void* data, size_t size) {
    *(int*)context += name[0] != '\0' && type != VQREG_NONE && data != NULL && size > 0;
    return 0;
}

static int use_values(vqreg_store* store) {
    char text[8];
    size_t size = sizeof text;
    uint32_t number = 0;
    int values = 0;
    return check(vqreg_set_dword(store, "C/Key", "Number", 31) == VQREG_OK, "setting") &&
           check(vqreg_set_string(store, "C/Key", "Text", "abc") == VQREG_OK, "setting a text") &&
           check(vqreg_get_dword(store, "C/Key", "Number", &number) == VQREG_OK && number == 31,
                 "reading") &&
           check(vqreg_get_string(store, "C/Key", "Text", text, &size) == VQREG_OK &&
                     strcmp(text, "abc") == 0,
                 "reading a text") &&
           check(vqreg_visit_values(store, "C/Key", count, &values) == VQREG_OK && values == 2,
                 "visiting");
}

int main(int argc, char** argv) {
    int result = -1;
    int is_good;
    const vqreg_change* change = NULL;
    vqreg_store* const store = argc == 2 ? vqreg_open(argv[1], NULL, &result) : NULL;
    vqreg_watch* const watch = vqreg_watch_open(store, NULL, NULL);
    if (!check(store != NULL && watch != NULL, vqreg_strerror(result))) {
        return 1;
    }
    is_good =
        use_values(store) &&
        check(vqreg_watch_next(watch, &change) == 1 && strcmp(change->path, "C") == 0, "watching");
    vqreg_watch_close(watch);
    vqreg_close(store);
    return is_good ? 0 : 1;
}
