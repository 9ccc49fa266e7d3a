// Tells whether a document is as a JSON Schema says.
#pragma once

#include <filesystem>
#include <string>

namespace testsupport {

/// Holds a document against a schema (JSON Schema draft 7).
/// \param jsonText the document, UTF-8
/// \param schemaFile if there is no such file, the file of this name beside the program is taken
/// \returns an empty text for a document that is as the schema says, else a line for each violation
///   with its place in the document; one line if the document is not JSON
/// \throws std::runtime_error if the schema cannot be read or is not a schema
std::string violations(const std::string& jsonText, const std::filesystem::path& schemaFile);

} // namespace testsupport
