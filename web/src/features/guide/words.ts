import { words } from "../../app/language";

export const label = words({
  IDS_DETAILS: "Details",
  IDS_GUIDE: "Programme guide",
  IDS_RECORD: "Record",
});
