import { words } from "../../app/language";

export const label = words({
  IDS_FOUND_IN_DESCRIPTION: "Found in the description",
  IDS_NOT_SERVED: "Not served",
  IDS_SERVED_ONLY: "Served only",
  IDS_URIS: "URIs",
  IDS_URIS_BY_GROUP: "URIs by group",
  IDS_WITHOUT_EFFECT: "Without effect",
});
