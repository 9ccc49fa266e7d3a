// Whether a document is as a JSON Schema says.
#pragma once

#include <filesystem>
#include <string>

namespace testsupport {

/// Holds a document against a schema (JSON Schema draft 7).
/// \param jsonText the document, UTF-8
/// \param schemaFile if there is none, the file of this name beside the program
/// \returns nothing if it is as the schema says, else what is wrong: a line for each violation,
/// with
///          the place in the document; also if the text is no JSON
/// \throws std::runtime_error if the schema cannot be read or is none
std::string violations(const std::string& jsonText, const std::filesystem::path& schemaFile);

} // namespace testsupport
