/* A stand-in options provider for tests: answers one option. */
#include <string.h>

__attribute__((visibility("default"))) int GetOption(int scope, const char* key, const char* name,
                                                     char* value) {
  (void)key;
  if (scope == 1 && strcmp(name, "PostofficeRoot") == 0) {
    strcpy(value, "/custom/root");
    return 1;
  }
  return 0;
}
