// Brand-text parser: series, model and number of an Intel or AMD Ryzen brand string.

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "cmutil/system/CmSystemInfo.h"

namespace {

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> pieces;
  std::string piece;
  std::istringstream in(text);
  while (std::getline(in, piece, separator)) pieces.push_back(piece);
  return pieces;
}

bool contains(const std::string& text, const char* part) { return text.find(part) != std::string::npos; }

// Intel layouts: "... i7-8750H ...", "... i7 CPU 920", "... Ultra 7 155H", four words.
// Returns false for a layout it cannot read.
bool parse_intel(const std::string& brand, std::string& model, std::string& series, std::string& numberText,
                 uint32_t& number, bool& done) {
  const std::vector<std::string> tokens = split(brand, ' ');
  if (tokens.size() < 2) return false;
  series = tokens[1];
  if (contains(brand, "Core(TM)2")) series = "Core(TM)2";
  if (contains(brand, "Xeon(R)")) series = "Xeon(R)";
  if (contains(brand, "Celeron(R)")) series = "Celeron(R)";
  if (contains(brand, "Pentium(R)")) {
    series = "Pentium(R)";
  } else if (series.size() >= 2 && series[0] == 'N') {
    // "N100": the number follows the letter.
    const unsigned long value = std::strtoul(series.c_str() + 1, nullptr, 10);
    if (std::isdigit(static_cast<unsigned char>(series[1])) && value != 0) {
      number = static_cast<uint32_t>(value);
      series = "N";
      done = true;
      return true;
    }
  }
  for (size_t i = 2; i < tokens.size(); ++i) {
    if (!contains(tokens[i], "-")) continue;
    const std::vector<std::string> pieces = split(tokens[i], '-');
    if (pieces.size() < 2) break;
    model = pieces[0];
    numberText = pieces[1];
    if (numberText.size() > 1 && numberText[1] == 'Y') numberText[1] = '0';  // 7Y30 reads 7030
    return true;
  }
  if (tokens.size() >= 5 && tokens[3] == "CPU") {
    model = tokens[2];
    numberText = tokens[4];
    return true;
  }
  if (tokens.size() >= 5 && tokens[2] == "Ultra") {
    model = tokens[3];
    numberText = tokens[4];
    return true;
  }
  if (tokens.size() == 4) {
    model = tokens[2];
    numberText = tokens[3];
    return true;
  }
  return false;
}

// "AMD Ryzen 7 5800X": the tier digits after "Ryzen ", at most five. A brand that ends
// before the seventh character from "Ryzen" has none.
void parse_ryzen(const std::string& brand, std::string& numberText) {
  const size_t at = brand.find("Ryzen");
  for (size_t i = at + 6, n = 0; i < brand.size() && n < 5 && std::isdigit(static_cast<unsigned char>(brand[i]));
       ++i, ++n)
    numberText += brand[i];
}

}  // namespace

bool getCpuModelAndGeneration(std::string brand, std::string& model, uint32_t& number, bool& is_intel,
                              std::string& series, char* number_text) {
  model.clear();
  series.clear();
  number = 0;
  is_intel = false;
  std::string numberText = "0";
  if (contains(brand, "Intel")) {
    is_intel = true;
    bool done = false;
    if (!parse_intel(brand, model, series, numberText, number, done)) return false;
    if (done) return true;
  } else if (contains(brand, "AMD") && contains(brand, "Ryzen")) {
    parse_ryzen(brand, numberText);
  }
  if (numberText.empty()) return true;
  if (!std::isdigit(static_cast<unsigned char>(numberText[0]))) return true;
  number = static_cast<uint32_t>(std::strtoul(numberText.c_str(), nullptr, 10));
  if (number_text) std::memcpy(number_text, numberText.c_str(), numberText.size() + 1);
  return true;
}
