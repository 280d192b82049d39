import { lazy } from "../../app/lazy";
import type { View } from "../../app/view";
import { AntennaIcon } from "../../ui/icons";
import { label } from "./words";

export const view: View = {
  id: "scan",
  title: () => label("IDS_CHANNEL_SEARCH"),
  order: 29,
  icon: AntennaIcon,
  component: lazy(async () => (await import("./scan-panel")).ScanPanel),
};
