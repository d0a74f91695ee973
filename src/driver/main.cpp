#include "driver/vesk.h"

int main(int argc, char **argv) { return vesk_main(argc, argv); }
