import { lazy } from "../../app/lazy";
import type { View } from "../../app/view";
import { GuideIcon } from "../../ui/icons";
import { label } from "./words";

export const view: View = {
  id: "guide",
  title: () => label("IDS_GUIDE"),
  order: 24,
  icon: GuideIcon,
  component: lazy(async () => (await import("./guide-panel")).GuidePanel),
};
