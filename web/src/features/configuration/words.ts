import { words } from "../../app/language";

export const label = words({
  IDS_ADD: "Add",
  IDS_CONFIGURATION: "Configuration",
  IDS_DEFAULT: "Default",
  IDS_KEY: "Key",
  IDS_LIMITS: "Limits",
  IDS_NOT_DEFAULT: "Not the default",
  IDS_SEND: "Send",
  IDS_VALUE: "Value",
  IDS_VALUES: "values",
});
