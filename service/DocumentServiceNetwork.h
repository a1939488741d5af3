#pragma once

#include "service/DocumentService.h"

namespace Nimra {

/// The kind of document service that the cache hands its operations to.
class DocumentServiceNetwork : public DocumentService {
  public:
    ~DocumentServiceNetwork() override;
};

}  // namespace Nimra
