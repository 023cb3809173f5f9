#include "strix/driver.h"

int main(int argc, char** argv) {
  return strix::run_command(argc, argv);
}
