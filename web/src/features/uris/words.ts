import { words } from "../../app/language";

export const label = words({ IDS_URIS: "URIs" });
