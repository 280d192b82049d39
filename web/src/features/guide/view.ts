import type { View } from "../../app/view";
import { GuideIcon } from "../../ui/icons";
import { GuidePanel } from "./guide-panel";
import { label } from "./words";

export const view: View = {
  id: "guide",
  title: () => label("IDS_GUIDE"),
  order: 24,
  icon: GuideIcon,
  component: GuidePanel,
};
