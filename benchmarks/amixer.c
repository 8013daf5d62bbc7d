/* Stands in for the machine's mixer, which is none of the benchmark's business: says nothing but how loud it is. */
#include <stdio.h>
#include <string.h>

int main(int count, char** arguments)
{
    return count > 1 && strcmp(arguments[1], "get") == 0 ? puts("  Front Left: Playback 100 [79%] [-13.50dB] [on]") < 0
                                                         : 0;
}
