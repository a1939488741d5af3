#pragma once

#include "service/DataService.h"

namespace Nimra {

/// A service that also carries out what a user does to a document.
class DocumentService : public DataService {
  public:
    ~DocumentService() override;
};

}  // namespace Nimra
