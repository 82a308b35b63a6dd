// The built-in profile, the same as sim/profiles/default.json (a test keeps the two equal).
#include "sim_controller.h"

namespace sim {

const char* DefaultProfileJson() {
    return R"json({
  "description": "The built-in profile: one reader with one ready PIV card.",
  "readers": [
    {
      "name": "Corvana Simulated Reader 0",
      "card": {
        "serial": "4356534D00000001",
        "type": "piv",
        "inserted": true,
        "transactionTimeout": 30,
        "pin": {
          "value": "123456",
          "min": 6,
          "max": 8,
          "weakCheck": true,
          "triesLeft": 3,
          "maxTries": 3,
          "primaryCount": 1
        },
        "unblock": {
          "adminKey": "010203040506070801020304050607080102030405060708",
          "authenticable": true
        },
        "unlockCode": "5A3C96E10F7B2D48",
        "capabilities": ["ImportCertificate"],
        "failures": []
      }
    }
  ]
}
)json";
}

} // namespace sim
