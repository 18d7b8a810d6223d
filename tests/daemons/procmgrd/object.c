int procmgr_app_main(int argc, char** argv);

int procmgr_app_main(int argc, char** argv) {
    (void)argc;
    (void)argv;
    return 0;
}
