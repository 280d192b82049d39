import { lazy } from "../../app/lazy";
import type { View } from "../../app/view";
import { SlidersIcon } from "../../ui/icons";
import { label } from "./words";

export const view: View = {
  id: "configuration",
  title: () => label("IDS_CONFIGURATION"),
  order: 30,
  icon: SlidersIcon,
  component: lazy(async () => (await import("./config-panel")).ConfigPanel),
};
