// Tells whether a document is as a JSON Schema says.
#include "jsonschema.h"

#include <valijson/adapters/nlohmann_json_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validation_results.hpp>
#include <valijson/validator.hpp>

#include <nlohmann/json.hpp>

#include <windows.h>

#include <fstream>
#include <stdexcept>

namespace testsupport {

namespace {

using valijson::adapters::NlohmannJsonAdapter;

// On a machine that only runs the programs, what they need lies beside them.
std::filesystem::path besideProgram(const std::filesystem::path& file) {
    std::wstring program(32768, L'\0');
    program.resize(GetModuleFileNameW(nullptr, program.data(), static_cast<DWORD>(program.size())));
    return std::filesystem::path(program).parent_path() / file.filename();
}

nlohmann::json readSchema(const std::filesystem::path& file) {
    std::ifstream stream(exists(file) ? file : besideProgram(file), std::ios::binary);
    if (!stream)
        throw std::runtime_error("the schema " + file.string() + " cannot be read");
    try {
        return nlohmann::json::parse(stream);
    } catch (const nlohmann::json::parse_error& error) {
        throw std::runtime_error("the schema " + file.string() + " is not JSON: " + error.what());
    }
}

void load(const nlohmann::json& document, valijson::Schema& schema) {
    valijson::SchemaParser parser(valijson::SchemaParser::kDraft7);
    parser.populateSchema(NlohmannJsonAdapter(document), schema);
}

std::string placeOf(const valijson::ValidationResults::Error& error) {
    std::string place;
    for (const std::string& step : error.context)
        place += step;
    return place;
}

std::string lines(valijson::ValidationResults& results) {
    std::string text;
    for (valijson::ValidationResults::Error error; results.popError(error);)
        text += placeOf(error) + ": " + error.description + '\n';
    return text;
}

} // namespace

std::string violations(const std::string& jsonText, const std::filesystem::path& schemaFile) {
    const nlohmann::json schemaDocument = readSchema(schemaFile);
    valijson::Schema schema;
    load(schemaDocument, schema);

    nlohmann::json document;
    try {
        document = nlohmann::json::parse(jsonText);
    } catch (const nlohmann::json::parse_error& error) {
        return std::string(error.what()) + '\n';
    }
    valijson::Validator validator;
    valijson::ValidationResults results;
    if (validator.validate(schema, NlohmannJsonAdapter(document), &results))
        return {};
    return lines(results);
}

} // namespace testsupport
