// cvhelpdesk <challenge> <administrator key>
// Prints the response that unblocks the card which showed the challenge. The challenge may be
// typed in groups (several arguments, blanks or dashes); the key is the last argument.
#include <windows.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "cng_crypto_win.h"
#include "helpdesk_response.h"
#include "services/secstr.h"

namespace {

const int kExitOk = 0;
const int kExitCipher = 1;
const int kExitBadInput = 2;

void PrintUsage(FILE* stream) {
    fputs("Usage: cvhelpdesk <challenge> <administrator-key>\n"
          "  challenge           the 16 hexadecimal digits the user reads out; blanks and dashes\n"
          "                      between bytes are allowed (quote it, or type it as several words)\n"
          "  administrator-key   the card's 3DES key: 32 (two-key) or 48 (three-key) hex digits\n"
          "Prints the response in groups of four digits, for example: 1A2B 3C4D 5E6F 7081\n",
          stream);
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 2 &&
        (strcmp(argv[1], "-h") == 0 || strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "/?") == 0)) {
        PrintUsage(stdout);
        return kExitOk;
    }
    if (argc < 3) {
        fputs("cvhelpdesk: expected a challenge and an administrator key\n", stderr);
        PrintUsage(stderr);
        return kExitBadInput;
    }
    std::string challenge;
    for (int i = 1; i < argc - 1; ++i) {
        if (i > 1) challenge += ' ';
        challenge += argv[i];
    }
    std::string key = argv[argc - 1];
    sim::CngCrypto crypto;
    std::string response, error;
    const helpdesk::ResponseStatus status =
        helpdesk::ComputeResponse(crypto, challenge, key, response, error);
    SecureWipe(&key[0], key.size());
    SecureWipe(argv[argc - 1], strlen(argv[argc - 1]));
    switch (status) {
    case helpdesk::ResponseStatus::Ok:
        printf("%s\n", response.c_str());
        return kExitOk;
    case helpdesk::ResponseStatus::BadInput:
        fprintf(stderr, "cvhelpdesk: %s\n", error.c_str());
        return kExitBadInput;
    default:
        fprintf(stderr, "cvhelpdesk: %s\n", error.c_str());
        return kExitCipher;
    }
}
