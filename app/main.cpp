#include "run/orv_driver.h"

int main(int argc, char** argv) { return brimlock_main(argc, argv); }
