// The table of orlix's subcommands.
#include "cli.hpp"

namespace cli {

int json_command(std::vector<std::string_view> args);
int base64_command(std::vector<std::string_view> args);
int hex_command(std::vector<std::string_view> args);
int pem_command(std::vector<std::string_view> args);
int normalize_command(std::vector<std::string_view> args);
int casefold_command(std::vector<std::string_view> args);
int ldapprep_command(std::vector<std::string_view> args);
int nameprep_command(std::vector<std::string_view> args);
int idn_command(std::vector<std::string_view> args);
int time_command(std::vector<std::string_view> args);
int prime_command(std::vector<std::string_view> args);
int version_command(std::vector<std::string_view> args);

const std::vector<Command> &commands() {
  static const std::vector<Command> table = {
      {"json", "decode JSON text and encode it again, compact or indented", json_command},
      {"base64", "encode to or decode from base64", base64_command},
      {"hex", "encode to or decode from hexadecimal digits", hex_command},
      {"pem", "wrap bytes in PEM armour or take them out", pem_command},
      {"normalize", "Unicode normalization (NFC, NFD, NFKC, NFKD)", normalize_command},
      {"casefold", "Unicode case folding", casefold_command},
      {"ldapprep", "LDAP string preparation", ldapprep_command},
      {"nameprep", "nameprep preparation of domain-name labels", nameprep_command},
      {"idn", "international domain names to ASCII and back", idn_command},
      {"time", "current time, zone conversion, the zone database", time_command},
      {"prime", "generate a random prime", prime_command},
      {"version", "print the library version", version_command},
  };
  return table;
}

}  // namespace cli
