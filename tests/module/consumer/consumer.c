#include <vorn/vorn.h>

#include <stdio.h>
#include <string.h>

int main(void)
{
    char text[16];
    uint32_t size = 0;
    if (VornInitialize() != VORN_OK) return 1;
    if (VornGetVersion() != VORN_VERSION) return 2;
    if (VornBase64EncodeBuffer((const uint8_t*)"vorn", 4, NULL, &size) != VORN_OK || size != 9) return 3;
    if (VornBase64EncodeBuffer((const uint8_t*)"vorn", 4, text, &size) != VORN_OK) return 4;
    if (strcmp(text, "dm9ybg==") != 0) return 5;
    VornTerminate();
    puts("consumer of the C interface: ok");
    return 0;
}
