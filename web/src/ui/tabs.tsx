import type { FunctionComponent } from "preact";

export interface Tab {
  id: string;
  title: string;
  icon: FunctionComponent;
  badge: { count: number; label: string } | undefined;
}

interface TabsProps {
  label: string;
  tabs: Tab[];
  current: string;
  onChoose: (id: string) => void;
}

export const Tabs = ({ label, tabs, current, onChoose }: TabsProps) => (
  <nav class="tabs" aria-label={label}>
    {tabs.map(({ id, title, icon: Icon, badge }) => (
      <button
        type="button"
        key={id}
        data-tab={id}
        title={title}
        aria-current={current === id ? "page" : undefined}
        onClick={() => onChoose(id)}
      >
        <Icon />
        <span class="tab-text">{title}</span>
        {badge !== undefined && badge.count > 0 && (
          <span class="count" aria-label={badge.label}>
            {badge.count > 999 ? "999+" : badge.count}
          </span>
        )}
      </button>
    ))}
  </nav>
);
