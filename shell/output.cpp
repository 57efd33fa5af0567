#include "shell/output.h"

void outputWrite(FILE *to, std::string_view text) { static_cast<void>(fwrite(text.data(), 1, text.size(), to)); }

void outputShow(FILE *to, std::string_view text) {
    outputWrite(to, text);
    static_cast<void>(fflush(to));
}
