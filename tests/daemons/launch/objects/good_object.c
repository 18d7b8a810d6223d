#include <stdio.h>

int procmgr_app_main(int argc, char** argv);

int procmgr_app_main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        printf("%s\n", argv[i]);
    }
    return 40 + argc;
}
