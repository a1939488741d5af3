#include "service/Document.h"

#include <utility>

namespace Nimra {

Document::Document(unsigned long documentId, unsigned long folderId, unsigned long userId,
                   std::string documentName)
    : PelData(documentName, 4),
      id(documentId),
      parentId(folderId),
      ownerId(userId),
      nameCopy(std::move(documentName)) {}

std::string Document::escapedName() const {
    std::string escaped;
    escaped.reserve(name.size());
    for (const char letter : name) {
        switch (letter) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            case '\'':
                escaped += "&apos;";
                break;
            default:
                escaped += letter;
        }
    }
    return escaped;
}

void Document::addKeyValue(std::string key, KeyValue value) {
    _keyValues.emplace(std::move(key), std::move(value));
}

void Document::setKeyValue(std::string key, KeyValue value) {
    _keyValues.insert_or_assign(std::move(key), std::move(value));
}

}  // namespace Nimra
